#include "platform/power/SleepInhibitor.h"

#include <sdbus-c++/sdbus-c++.h>

#include <atomic>
#include <chrono>

#include "foundation/Log.h"
#include "foundation/SerialQueue.h"

namespace velorin {
namespace {

using namespace std::chrono_literals;

constexpr auto kAnswerTime = 2s;

sdbus::UnixFd takeLock() {
  // The lock lives as long as the descriptor; the connection need not.
  const auto connection = sdbus::createSystemBusConnection();
  const auto logind =
      sdbus::createProxy(*connection, "org.freedesktop.login1", "/org/freedesktop/login1");
  sdbus::UnixFd lock;
  logind->callMethod("Inhibit")
      .onInterface("org.freedesktop.login1.Manager")
      .withTimeout(kAnswerTime)
      .withArguments("idle", "Velorin", "Velorin audio playback", "block")
      .storeResultsTo(lock);
  return lock;
}

}  // namespace

struct SleepInhibitor::Impl {
  std::atomic<bool> isWanted{false};

  // On the queue.
  std::optional<sdbus::UnixFd> lock;
  bool wasReported = false;

  SerialQueue queue{"com.velorin.power"};  // last: it joins before what its tasks use goes

  void want(bool wanted) {
    if (isWanted.exchange(wanted) == wanted) return;
    queue.async([this] { apply(); });
  }

  // Looks at what is wanted now: of a quick release and acquire only the end counts.
  void apply() {
    if (!isWanted.load()) {
      lock.reset();
      return;
    }
    if (lock) return;
    try {
      lock = takeLock();
    } catch (const sdbus::Error& error) {
      if (std::exchange(wasReported, true)) return;
      log::line("ℹ️ The machine may fall asleep while playing: no logind ({})",
                error.getMessage());
    }
  }
};

SleepInhibitor::SleepInhibitor() : _impl(std::make_shared<Impl>()) {}

SleepInhibitor::~SleepInhibitor() {
  release();
}

void SleepInhibitor::acquire() {
  _impl->want(true);
}

void SleepInhibitor::release() {
  _impl->want(false);
}

}  // namespace velorin
