#include "platform/memory/MemoryPressure.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <system_error>

#include "foundation/Log.h"
#include "foundation/ThreadName.h"

namespace velorin {
namespace {

// Microseconds of waiting, and of the window. Windows of two seconds and their multiples are what
// the kernel grants to everybody. The terminating zero is part of what is written.
constexpr char kTrigger[] = "some 200000 2000000";

FileDescriptor setTrigger(const std::string& source) {
  FileDescriptor file(::open(source.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
  if (!file || ::write(file.get(), kTrigger, sizeof kTrigger) < 0) {
    const int reason = errno;
    file = FileDescriptor();
    errno = reason;
  }
  return file;
}

}  // namespace

std::vector<std::string> MemoryPressure::systemSources() {
  std::vector<std::string> sources = {"/proc/pressure/memory"};
  // The line of the unified hierarchy: "0::/user.slice/…".
  std::ifstream groups("/proc/self/cgroup");
  for (std::string line; std::getline(groups, line);) {
    if (line.starts_with("0::/") && line.size() > 4) {
      sources.push_back("/sys/fs/cgroup" + line.substr(3) + "/memory.pressure");
    }
  }
  return sources;
}

std::unique_ptr<MemoryPressure> MemoryPressure::watch(const std::vector<std::string>& sources,
                                                      Handler handler) {
  int reason = ENOENT;
  for (const std::string& source : sources) {
    if (FileDescriptor file = setTrigger(source)) {
      return std::make_unique<MemoryPressure>(std::move(file), std::move(handler));
    }
    reason = errno;
  }
  log::line("ℹ️ Memory pressure is not watched: no PSI trigger ({})",
            std::generic_category().message(reason));
  return nullptr;
}

MemoryPressure::MemoryPressure(FileDescriptor source, Handler handler)
    : _source(std::move(source)), _stop(::eventfd(0, EFD_CLOEXEC)), _handler(std::move(handler)) {
  if (!_stop) throw std::system_error(errno, std::generic_category(), "eventfd");
  _thread = std::thread([this] {
    nameThisThread("com.velorin.memory-pressure");
    run();
  });
}

MemoryPressure::~MemoryPressure() {
  ::eventfd_write(_stop.get(), 1);
  _thread.join();
}

void MemoryPressure::run() const {
  std::array<pollfd, 2> polled{pollfd{.fd = _source.get(), .events = POLLPRI, .revents = 0},
                               pollfd{.fd = _stop.get(), .events = POLLIN, .revents = 0}};
  while (true) {
    if (::poll(polled.data(), polled.size(), -1) < 0) {
      if (errno == EINTR) continue;
      return;
    }
    if (polled[1].revents != 0) return;
    if ((polled[0].revents & (POLLERR | POLLHUP | POLLNVAL)) != 0) return;  // the group is gone
    if ((polled[0].revents & POLLPRI) != 0) _handler();
  }
}

}  // namespace velorin
