#include "platform/audio/alsa/AlsaEventRelay.h"

#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace velorin {
namespace {

constexpr std::uint32_t bitOf(OutputEvent event) {
  return 1u << static_cast<unsigned>(event);
}

}  // namespace

AlsaEventRelay::AlsaEventRelay(std::function<void(OutputEvent)> handler)
    : _handler(std::move(handler)), _wake(eventfd(0, EFD_CLOEXEC)) {
  if (_wake < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
  _thread = std::thread([this] { run(); });
  pthread_setname_np(_thread.native_handle(), "alsa.events");
}

AlsaEventRelay::~AlsaEventRelay() {
  _ending.store(true);
  wake();
  _thread.join();
  close(_wake);
}

void AlsaEventRelay::raise(OutputEvent event) noexcept {
  _raised.fetch_or(bitOf(event));
  wake();
}

// A blocking eventfd, but the counter would have to reach 2^64 - 1 before a write waits.
void AlsaEventRelay::wake() noexcept {
  const std::uint64_t one = 1;
  [[maybe_unused]] const ssize_t written = write(_wake, &one, sizeof one);
}

void AlsaEventRelay::run() {
  bool isLost = false;
  for (bool ending = false; !ending;) {
    std::uint64_t count = 0;
    if (read(_wake, &count, sizeof count) < 0 && errno == EINTR) continue;
    ending = _ending.load();
    const std::uint32_t raised = _raised.exchange(0);
    if (!_handler || isLost) continue;
    for (const OutputEvent event : {OutputEvent::xrun, OutputEvent::formatChanged}) {
      if (raised & bitOf(event)) _handler(event);
    }
    if (raised & bitOf(OutputEvent::deviceLost)) {
      isLost = true;
      _handler(OutputEvent::deviceLost);
    }
  }
}

}  // namespace velorin
