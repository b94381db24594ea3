// How one track list became another, as the signals of MediaPlayer2.TrackList tell it.
#pragma once

#include <optional>
#include <vector>

#include "platform/desktop/MprisTypes.h"

namespace velorin {

struct TrackListChanges {
  struct Added {
    std::size_t index = 0;              ///< in the new list
    std::optional<MprisTrackId> after;  ///< its neighbour there; none at the start
    bool operator==(const Added&) const = default;
  };

  /// Too much to tell one by one, or items changed places; the rest is empty then.
  bool isReplaced = false;
  std::vector<MprisTrackId> removed;  ///< to be told first
  std::vector<Added> added;           ///< in the order in which they can be told
  std::vector<std::size_t> edited;    ///< items of the new list that tell other things than before

  bool empty() const { return !isReplaced && removed.empty() && added.empty() && edited.empty(); }
};

/// `most`: how many additions and removals may be told one by one. Ids are unique in a list. Pure.
TrackListChanges changesBetween(const std::vector<MprisTrack>& before,
                                const std::vector<MprisTrack>& after, std::size_t most);

}  // namespace velorin
