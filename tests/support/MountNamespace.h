// Mounts that only a test program and its children see, gone when they end.
#pragma once

#include <fcntl.h>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <fstream>

namespace velorin::test {

/// Enters a mount namespace of its own; without the rights of root, in a user namespace of its own.
/// Before the program has a second thread: as a testing::Environment.
class MountNamespace : public testing::Environment {
 public:
  void SetUp() override {
    const auto user = ::geteuid();
    const auto group = ::getegid();
    if (::unshare(CLONE_NEWNS) != 0) {
      if (::unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return;
      std::ofstream("/proc/self/setgroups") << "deny";
      std::ofstream("/proc/self/uid_map") << fmt::format("0 {} 1", user);
      std::ofstream("/proc/self/gid_map") << fmt::format("0 {} 1", group);
    }
    _mayMount = ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
  }

  /// False where the machine allows neither; then a test skips.
  static bool mayMount() { return _mayMount; }

 private:
  static inline bool _mayMount = false;
};

}  // namespace velorin::test
