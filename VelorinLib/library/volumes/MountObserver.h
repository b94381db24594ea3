// Tells when a volume is mounted.
#pragma once

#include <functional>
#include <string>

#include "platform/files/MountWatcher.h"

namespace velorin {

/// Lives as long as somebody wants to hear of volumes that come. An automount that has mounted
/// nothing yet is none.
class MountObserver {
 public:
  /// mountPoint: an absolute path. Called on a thread of the observer's own, one at a time, not on
  /// that of the maker; the call must not end the observer.
  using OnMount = std::function<void(const std::string& mountPoint)>;

  explicit MountObserver(OnMount onMount)
      : _watcher([onMount = std::move(onMount)](const MountWatcher::Changes& changes) {
          for (const Mount& mount : changes.added) {
            if (!isAutomount(mount)) onMount(mount.point);
          }
        }) {}

 private:
  MountWatcher _watcher;
};

}  // namespace velorin
