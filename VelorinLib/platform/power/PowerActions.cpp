#include "platform/power/PowerActions.h"

#include <sdbus-c++/sdbus-c++.h>

#include <chrono>
#include <utility>

#include "foundation/Log.h"
#include "foundation/SerialQueue.h"

namespace velorin {
namespace {

using namespace std::chrono_literals;

constexpr auto kUntilSilent = 300ms;
constexpr auto kAnswerTime = 2s;

void askLogind(const char* method) {
  const auto connection = sdbus::createSystemBusConnection();
  const auto logind =
      sdbus::createProxy(*connection, "org.freedesktop.login1", "/org/freedesktop/login1");
  const bool mayAskForPassword = false;
  logind->callMethod(method)
      .onInterface("org.freedesktop.login1.Manager")
      .withTimeout(kAnswerTime)
      .withArguments(mayAskForPassword);
}

}  // namespace

struct PowerActions::Impl {
  bool wasReported = false;                // on the queue
  SerialQueue queue{"com.velorin.power"};  // last: it joins before what its tasks use goes

  void ask(const char* method, const char* what) {
    queue.asyncAfter(kUntilSilent, [this, method, what] {
      try {
        askLogind(method);
      } catch (const sdbus::Error& error) {
        if (std::exchange(wasReported, true)) return;
        log::line("ℹ️ The machine cannot be {}: {}", what, error.getMessage());
      }
    });
  }
};

PowerActions::PowerActions() : _impl(std::make_unique<Impl>()) {}

PowerActions::~PowerActions() = default;

void PowerActions::suspend() {
  _impl->ask("Suspend", "put to sleep");
}

void PowerActions::powerOff() {
  _impl->ask("PowerOff", "turned off");
}

}  // namespace velorin
