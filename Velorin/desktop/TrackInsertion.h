// Files that are on their way into the timeline, each to its place.
#pragma once

#include <chrono>
#include <deque>
#include <optional>
#include <string>

#include "platform/desktop/MprisTypes.h"

namespace velorin {

class PlayerState;
class TrackListWindow;

/// The player reads files in the background and puts them behind the current item or at the end;
/// what is to stand elsewhere, or to be played at once, is looked after when it has come. Main
/// thread.
class TrackInsertion {
 public:
  /// After that item, or as near to it as can be: nothing is put before or among what was played.
  /// A sheet's tracks stand behind the current item.
  void add(PlayerState& player, const TrackListWindow& window, const std::string& path,
           std::optional<MprisTrackId> after, bool plays);

  /// To be called with the window as it was before the change.
  void timelineChanged(PlayerState& player, const TrackListWindow& before);

 private:
  struct Awaited {
    std::string path;
    std::optional<MprisTrackId> after;  ///< none: where it comes
    bool plays = false;
    std::chrono::steady_clock::time_point since;
  };
  /// True when it has come and was looked after.
  static bool settle(PlayerState& player, const TrackListWindow& before, const Awaited& awaited);

  std::deque<Awaited> _awaited;  ///< oldest first
};

}  // namespace velorin
