#include "shell/ServiceManager.h"

#include <systemd/sd-daemon.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "foundation/Log.h"
#include "foundation/MainThread.h"
#include "foundation/Text.h"

namespace velorin {

struct ServiceManager::Impl {
  const bool isPresent = std::getenv("NOTIFY_SOCKET") != nullptr;
  std::string status;
  RepeatingTimer watchdog;

  void tell(const std::string& message) const {
    if (const int error = ::sd_notify(/*unset_environment=*/0, message.c_str()); error < 0) {
      log::line("⚠️ The service manager cannot be told: {}",
                std::generic_category().message(-error));
    }
  }
};

ServiceManager::ServiceManager() : _impl(std::make_unique<Impl>()) {}
ServiceManager::~ServiceManager() = default;

bool ServiceManager::isPresent() const noexcept {
  return _impl->isPresent;
}

void ServiceManager::tellReady() {
  _impl->tell("READY=1");
  std::uint64_t interval = 0;
  if (::sd_watchdog_enabled(/*unset_environment=*/0, &interval) <= 0) return;
  const std::chrono::milliseconds half(std::max<std::uint64_t>(interval / 2000, 1));
  _impl->watchdog.start(half, [this] { _impl->tell("WATCHDOG=1"); });
}

void ServiceManager::tellStatus(std::string_view text) {
  // A newline would begin another assignment.
  std::string status = text::escapeForTerminal(text);
  if (status == _impl->status) return;
  _impl->status = std::move(status);
  _impl->tell("STATUS=" + _impl->status);
}

void ServiceManager::tellStopping() {
  _impl->watchdog.stop();
  _impl->tell("STOPPING=1");
}

}  // namespace velorin
