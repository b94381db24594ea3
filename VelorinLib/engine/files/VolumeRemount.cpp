#include "engine/files/VolumeRemount.h"

#include <algorithm>
#include <system_error>
#include <thread>

#include "foundation/Log.h"
#include "foundation/Text.h"
#include "foundation/ThreadName.h"
#include "platform/files/RememberedVolume.h"
#include "platform/files/RemountURLs.h"
#include "platform/files/RunProgram.h"
#include "platform/files/VolumeMounting.h"

namespace velorin {
namespace {

using std::chrono::milliseconds;

constexpr std::chrono::seconds kLongestMount{10};
/// How often somebody who waits looks whether that is still wanted.
constexpr milliseconds kSlice{50};
constexpr milliseconds kRootPatience{1000};

bool mayGoOn(const VolumeRemount::IsWanted& isWanted) {
  return !isWanted || isWanted();
}

}  // namespace

/// Programs that mount, one after the other on a thread of its own, which nobody has to wait for.
class VolumeRemount::Attempt {
 public:
  using Commands = std::vector<std::vector<std::string>>;

  /// Without commands there is nothing that could fail: a touch of the path is the attempt.
  static void start(const std::shared_ptr<Attempt>& attempt, const Commands& commands,
                    const decltype(Settings::run)& run) {
    if (commands.empty()) return;
    try {
      std::thread([attempt, commands, run] {
        nameThisThread("com.velorin.engine.remount");
        const bool mounted = std::ranges::any_of(commands, run);
        const MutexLock hold(attempt->_mutex);
        attempt->_hasFailed = !mounted;
        attempt->_ended.notifyAll();
      }).detach();
    } catch (const std::system_error&) {  // no thread to be had
      const MutexLock hold(attempt->_mutex);
      attempt->_hasFailed = true;
    }
  }

  /// True when the time has passed and the path may still come; false as soon as the attempt has
  /// failed or is not wanted any more.
  bool waitFor(milliseconds time, const IsWanted& isWanted) EXCLUDES(_mutex) {
    const auto end = Clock::now() + time;
    for (auto now = Clock::now(); now < end; now = Clock::now()) {
      if (!mayGoOn(isWanted)) return false;
      const MutexLock hold(_mutex);
      if (_hasFailed) return false;
      _ended.waitUntil(_mutex, std::min(end, now + kSlice));
    }
    return mayGoOn(isWanted);
  }

 private:
  Mutex _mutex;
  ConditionVariable _ended;
  bool _hasFailed GUARDED_BY(_mutex) = false;
};

VolumeRemount::VolumeRemount() : VolumeRemount(Settings{}) {}

VolumeRemount::VolumeRemount(Settings settings)
    : _settings([&] {
        if (!settings.run) {
          settings.run = [](const auto& arguments) { return runProgram(arguments, kLongestMount); };
        }
        return std::move(settings);
      }()) {}

void VolumeRemount::setPreferences(Preferences* preferences) {
  const MutexLock hold(_storeMutex);
  _preferences = preferences;
}

bool VolumeRemount::resolveTrackURL(const std::string& path, const IsWanted& isWanted) {
  return isThere(path, _settings.patience, isWanted) || bringBack(path, isWanted);
}

bool VolumeRemount::bringBack(const std::string& path, const IsWanted& isWanted) {
  const auto tried = attempt(path);
  if (!tried) return false;
  for (int i = 0; i < kPolls; ++i) {
    if (isThere(path, _settings.pollInterval, isWanted)) return true;
    if (!tried->waitFor(_settings.pollInterval, isWanted)) break;
  }
  return mayGoOn(isWanted) && isThere(path, kSlice, isWanted);
}

bool VolumeRemount::remountVolume(const std::string& path) {
  return attempt(path) != nullptr;
}

std::shared_ptr<VolumeRemount::Attempt> VolumeRemount::attempt(const std::string& path) {
  const auto volume = awayVolume(path);
  if (!volume) return nullptr;
  if (volume->isDesktopShare &&
      _probe.ask(volume->root, kRootPatience).kind != PathProbe::Kind::nothing) {
    return nullptr;
  }
  if (!mayAttempt(volume->root)) return nullptr;
  const auto commands = mountCommands({volume->root, volume->url, volume->uuid}, _settings.fstab);
  if (commands.empty() && !volume->isAutomount) {
    log::line("⚠️ No remount URL found for volume: {}", text::escapeForTerminal(volume->name));
    return nullptr;
  }
  log::line("🔁 Attempting to remount volume for playback: {}",
            text::escapeForTerminal(volume->url.empty() ? volume->root : volume->url));
  auto made = std::make_shared<Attempt>();
  Attempt::start(made, commands, _settings.run);
  return made;
}

bool VolumeRemount::mayAttempt(const std::string& root) {
  const auto now = _settings.now();
  const MutexLock hold(_remountLock);
  const auto last = _remountAttemptAt.find(root);
  if (last != _remountAttemptAt.end() && now - last->second < kAttemptInterval) return false;
  _remountAttemptAt[root] = now;
  return true;
}

std::optional<AwayVolume> VolumeRemount::awayVolume(const std::string& path) {
  const MountTable table = MountTable::current();
  const MutexLock hold(_storeMutex);
  return awayVolumeOf(path, table, _settings.fstab, _preferences);
}

bool VolumeRemount::isThere(const std::string& path, milliseconds patience,
                            const IsWanted& isWanted) {
  for (milliseconds waited = std::min(kSlice, patience);; waited += kSlice) {
    const PathProbe::Kind kind = _probe.ask(path, waited).kind;
    if (kind != PathProbe::Kind::noAnswer) return kind != PathProbe::Kind::nothing;
    if (waited >= patience || !mayGoOn(isWanted)) return false;
  }
}

void VolumeRemount::remember(const std::string& path) {
  const MountTable table = MountTable::current();
  const Mount* mount = table.mountOf(path);
  if (mount == nullptr || isLocal(*mount)) return;
  const std::string url = remountURL(path, *mount);
  const std::string root = rootOfVolume(path, *mount);
  if (url.empty() || root.empty()) return;
  const MutexLock hold(_storeMutex);
  if (_preferences == nullptr) return;
  if (!remountURLs::remember(*_preferences, {root, volumeName(path, *mount)}, url)) return;
  log::line("📌 Cached remount URL for {}: {}", text::escapeForTerminal(root),
            text::escapeForTerminal(url));
}

}  // namespace velorin
