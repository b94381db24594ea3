// Tells when a file system is mounted or unmounted.
#pragma once

#include <functional>
#include <thread>
#include <vector>

#include "platform/files/MountTable.h"

namespace velorin {

/// The kernel marks /proc/self/mountinfo as changed; a thread of its own sleeps until then.
class MountWatcher {
 public:
  struct Changes {
    std::vector<Mount> added;
    std::vector<Mount> removed;
  };
  using OnChanges = std::function<void(const Changes& changes)>;

  /// Tells every change from now on, on the watcher's thread, never with none. Where /proc cannot
  /// be read a log line says so and nothing is told.
  explicit MountWatcher(OnChanges onChanges);
  /// When it returns, the callback runs no more. Not from inside the callback.
  ~MountWatcher();
  MountWatcher(const MountWatcher&) = delete;
  MountWatcher& operator=(const MountWatcher&) = delete;

 private:
  void run();

  const OnChanges _onChanges;
  int _mountInfo = -1;
  int _stop = -1;  // an eventfd
  MountTable _known;
  std::thread _thread;
};

}  // namespace velorin
