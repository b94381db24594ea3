// What the service manager is told of the player's life, where it was started by one.
#pragma once

#include <memory>
#include <string_view>

namespace velorin {

/// Speaks the protocol of sd_notify(3): to the socket that $NOTIFY_SOCKET names, else to nobody.
/// Where the manager watches the service ($WATCHDOG_USEC) the main loop reports twice in each of
/// its intervals that it is alive. Main thread.
class ServiceManager {
 public:
  ServiceManager();
  ~ServiceManager();
  ServiceManager(const ServiceManager&) = delete;
  ServiceManager& operator=(const ServiceManager&) = delete;

  /// False when nobody listens: what is told need not be made then.
  bool isPresent() const noexcept;

  /// The player is up; from now on the watchdog is served.
  void tellReady();
  /// One line of text on what goes on. A text that was told already is not told again.
  void tellStatus(std::string_view text);
  void tellStopping();

 private:
  struct Impl;
  std::unique_ptr<Impl> _impl;
};

}  // namespace velorin
