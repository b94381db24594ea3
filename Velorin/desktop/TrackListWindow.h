// The part of the timeline that desktops are shown, with an id for each item.
#pragma once

#include <cstddef>
#include <optional>
#include <unordered_map>
#include <vector>

#include "platform/desktop/MprisTypes.h"
#include "session/TrackList.h"

namespace velorin {

/// The items from 20 before the current one to 100 after it. Main thread.
///
/// An item keeps its id as long as it stays in the timeline, also while it is outside the window
/// or changes its place; a file that stands there twice has two. (Where one item of a TrackList
/// stands at several places, these share it: its ids go to them by their order.)
class TrackListWindow {
 public:
  static constexpr std::size_t kBefore = 20;
  static constexpr std::size_t kAfter = 100;

  struct Item {
    MprisTrackId id = 0;
    std::size_t index = 0;  ///< in the timeline
  };

  /// Follows the timeline; `current` is -1 where nothing is selected. Costs a pass over the
  /// addresses of the items when they changed.
  void update(const TrackList& timeline, int current);

  const std::vector<Item>& items() const noexcept { return _items; }
  std::optional<std::size_t> indexOf(MprisTrackId id) const;
  std::optional<MprisTrackId> idAt(std::size_t index) const;

  /// The id of an item that has one, wherever it stands by now.
  std::optional<MprisTrackId> idOf(const TrackInfo& item) const;

  /// An id for something that is not in the timeline.
  MprisTrackId newId() { return ++_lastId; }

 private:
  void forgetWhatIsGone(const TrackList& timeline);

  TrackList _timeline;  ///< keeps the items' addresses from being used again
  std::vector<Item> _items;
  std::unordered_map<const TrackInfo*, std::vector<MprisTrackId>> _ids;
  MprisTrackId _lastId = 0;
};

}  // namespace velorin
