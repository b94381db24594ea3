// A flag that a thread can wait for together with a device's descriptors.
#pragma once

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <system_error>

namespace velorin {

/// Setting is wait-free; a set signal stays set until it is cleared. Any thread.
class WakeSignal {
 public:
  WakeSignal() : _fd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (_fd < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
  }
  ~WakeSignal() { close(_fd); }
  WakeSignal(const WakeSignal&) = delete;
  WakeSignal& operator=(const WakeSignal&) = delete;

  int fd() const noexcept { return _fd; }
  void set() noexcept {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(_fd, &one, sizeof one);
  }
  void clear() noexcept {
    std::uint64_t count = 0;
    [[maybe_unused]] const ssize_t taken = read(_fd, &count, sizeof count);
  }
  /// True when set within the time.
  bool wait(std::chrono::milliseconds time) const noexcept {
    const auto deadline = std::chrono::steady_clock::now() + time;
    for (;;) {
      const auto left =
          std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
      pollfd one{_fd, POLLIN, 0};
      const int ready = poll(&one, 1, static_cast<int>(std::max<std::int64_t>(left.count(), 0)));
      if (ready > 0) return true;
      if (ready == 0 || errno != EINTR) return false;
    }
  }

 private:
  int _fd;
};

}  // namespace velorin
