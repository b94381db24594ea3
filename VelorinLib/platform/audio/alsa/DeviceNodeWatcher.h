// Tells when device nodes of a folder come, go or change their permissions.
#pragma once

#include <filesystem>
#include <functional>
#include <thread>

#include "platform/audio/alsa/WakeSignal.h"

namespace velorin {

/// Watches a folder such as /dev/snd, also while it does not exist yet: then its parent is
/// watched for it. A plugged-in card makes several nodes and then gets its permissions; `changed`
/// is called once when that has been quiet for 150 ms, on a thread of the watcher.
class DeviceNodeWatcher {
 public:
  DeviceNodeWatcher(std::filesystem::path folder, std::function<void()> changed);
  /// No call runs after this.
  ~DeviceNodeWatcher();
  DeviceNodeWatcher(const DeviceNodeWatcher&) = delete;
  DeviceNodeWatcher& operator=(const DeviceNodeWatcher&) = delete;

  /// False when the kernel offers no inotify; then nothing is ever told.
  bool isWatching() const noexcept { return _inotify >= 0; }

 private:
  void run();
  void watch();
  bool readEvents();

  const std::filesystem::path _folder;
  const std::function<void()> _changed;
  int _inotify;
  int _folderWatch = -1;
  int _parentWatch = -1;
  WakeSignal _ending;
  std::thread _thread;
};

}  // namespace velorin
