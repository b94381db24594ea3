// Brings back the volume of a track that went away: a share whose connection was lost, a disk that
// was unmounted, an automount that gave up.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine/files/AwayVolume.h"
#include "foundation/Mutex.h"
#include "foundation/Preferences.h"
#include "platform/files/PathProbe.h"

namespace velorin {

/// Shared by the engine and its fill threads. Any thread but the main thread and the render thread.
///
/// `restoreFolderAccess` has nothing to do on Linux: who may read a folder does not depend on how
/// the program came to know of it.
class VolumeRemount {
 public:
  using Clock = std::chrono::steady_clock;
  /// Asked while something is waited for; false ends the wait.
  using IsWanted = std::function<bool()>;

  static constexpr std::chrono::seconds kAttemptInterval{6};
  static constexpr int kPolls = 10;

  struct Settings {
    std::string fstab = "/etc/fstab";
    /// Runs a program; true when it succeeded. Empty: the real thing, see RunProgram.h.
    std::function<bool(const std::vector<std::string>& arguments)> run = {};
    std::function<Clock::time_point()> now = &Clock::now;
    std::chrono::milliseconds pollInterval{200};
    /// How long a file system may take to tell whether a file is there.
    std::chrono::milliseconds patience{10'000};
  };

  VolumeRemount();
  explicit VolumeRemount(Settings settings);

  /// Where volumes are remembered; null from the moment on that the store goes away. Without one,
  /// only what the machine itself tells of volumes is known.
  void setPreferences(Preferences* preferences);

  /// True when something is at the path: at once, or after its volume was made to come back. Waits
  /// for that 10 times 0.2 s, and only where a volume is away (see awayVolumeOf()) and there is a
  /// way to mount it; the attempt itself goes on behind that.
  bool resolveTrackURL(const std::string& path, const IsWanted& isWanted = {});

  /// The second half of it: the path is not there.
  bool bringBack(const std::string& path, const IsWanted& isWanted = {});

  /// Tries to mount the path's volume, in the background, and returns at once: true when an attempt
  /// was made. At most one in six seconds for a volume.
  bool remountVolume(const std::string& path);

  /// The file is there now: takes down how its volume can be mounted, if that is one of the
  /// network.
  void remember(const std::string& path);

 private:
  class Attempt;
  std::shared_ptr<Attempt> attempt(const std::string& path);
  bool mayAttempt(const std::string& root);
  std::optional<AwayVolume> awayVolume(const std::string& path);
  bool isThere(const std::string& path, std::chrono::milliseconds patience,
               const IsWanted& isWanted);

  const Settings _settings;
  PathProbe _probe;

  Mutex _storeMutex;  // held while the store is used, so that it may go away
  Preferences* _preferences GUARDED_BY(_storeMutex) = nullptr;

  Mutex _remountLock;
  std::map<std::string, Clock::time_point> _remountAttemptAt GUARDED_BY(_remountLock);
};

}  // namespace velorin
