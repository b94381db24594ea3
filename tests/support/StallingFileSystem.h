// A FUSE file system that a test can make hang. Needs the program stalling_fs, and the right to
// mount: see MountNamespace.h.
#pragma once

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <unistd.h>

#include <filesystem>

#include "support/ReportingChild.h"
#include "support/TemporaryFolder.h"

namespace velorin::test {

/// Shows a folder, read-only, at a mount point, which must be an empty folder. One thread.
class StallingFileSystem {
 public:
  StallingFileSystem(const std::filesystem::path& folder, const std::filesystem::path& mountPoint)
      : _mountPoint(mountPoint),
        _control(::open((_temporary / "control").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)),
        _program({STALLING_FS, folder, mountPoint, _temporary / "control"}) {
    _program.waitFor('r', 1);
    _isMounted = _program.reports() == "r";
  }
  ~StallingFileSystem() {
    release();
    ::umount2(_mountPoint.c_str(), MNT_DETACH);
    _program.kill();
    ::close(_control);
  }
  StallingFileSystem(const StallingFileSystem&) = delete;
  StallingFileSystem& operator=(const StallingFileSystem&) = delete;

  /// False where nobody may mount.
  bool isMounted() const { return _isMounted; }

  /// From now on every request waits.
  void hang() { ::flock(_control, LOCK_EX); }
  void release() { ::flock(_control, LOCK_UN); }

 private:
  TemporaryFolder _temporary;
  std::filesystem::path _mountPoint;
  int _control;
  ReportingChild _program;
  bool _isMounted = false;
};

}  // namespace velorin::test
