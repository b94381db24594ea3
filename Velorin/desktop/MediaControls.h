// The player as the desktop's media controls see it: PlayerState bound to MprisService.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace velorin {

class PlayerState;
class SessionBus;

/// Main thread. Takes the player's name on the bus, keeps what is told there up to date, and does
/// what is asked there. Media keys skip as the buttons do: several within 0.3 s start one track.
///
/// The track list is the part of the timeline around the current item (TrackListWindow.h): a queue
/// of 100,000 tracks does not go over the bus. Only what follows the current item can be edited:
/// AddTrack before it puts the track right after it, RemoveTrack of it or of an earlier one does
/// nothing.
class MediaControls {
 public:
  struct Options {
    /// Where the cached cover of an album is or would be (ArtworkCacheManager::cachedImagePath);
    /// may be empty.
    std::function<std::string(std::int64_t albumId)> coverPath;
    std::function<void()> raise;  ///< empty where there is no window
    std::function<void()> quit;
  };

  /// Both outlive this object.
  MediaControls(PlayerState& player, SessionBus& bus, Options options);
  ~MediaControls();
  MediaControls(const MediaControls&) = delete;
  MediaControls& operator=(const MediaControls&) = delete;

 private:
  struct Impl;
  std::unique_ptr<Impl> _impl;
};

}  // namespace velorin
