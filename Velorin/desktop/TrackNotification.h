// The notification that tells of another track.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "platform/desktop/DesktopNotifier.h"
#include "records/TrackInfo.h"

namespace velorin {

class Preferences;
class SessionBus;

struct TrackNotificationText {
  std::string title;     ///< of the track
  std::string subtitle;  ///< "artist — album"
  std::string body;      ///< "FLAC · 44.1 kHz · 16-bit" with what is known of it
};

/// Pure; any thread.
TrackNotificationText trackNotificationText(const TrackInfo& info);

/// Shows it unless the preference "trackChangeNotification" is present and false. Main thread.
/// What PlayerServices::notifyTrackChange is to call.
class TrackNotification {
 public:
  /// Where the cached cover of an album is or would be (ArtworkCacheManager::cachedImagePath).
  using CoverPath = std::function<std::string(std::int64_t albumId)>;
  /// Called on the main thread when the listener chooses an action.
  struct Actions {
    std::function<void()> next;             ///< "NEXT_TRACK": the player's nextDebounced
    std::function<void()> togglePlayPause;  ///< "PAUSE"
  };

  /// The bus and the preferences outlive this object; `coverPath` may be empty.
  TrackNotification(SessionBus& bus, const Preferences& preferences, CoverPath coverPath,
                    Actions actions);

  void show(const TrackInfo& info);

 private:
  const Preferences& _preferences;
  CoverPath _coverPath;
  DesktopNotifier _notifier;
};

}  // namespace velorin
