// Puts the machine to sleep or turns it off.
#pragma once

#include <memory>

namespace velorin {

/// Asks logind on the system bus, 0.3 s after the call, so that the sound has gone quiet. Nobody is
/// asked for a password: where the session may not do it, or there is no logind, that is said in
/// the log once and nothing happens. Any thread but the render thread; both return at once.
class PowerActions {
 public:
  PowerActions();
  /// Drops what has not been asked for yet. Waits for a bus that is being asked, at most 2 s.
  ~PowerActions();
  PowerActions(const PowerActions&) = delete;
  PowerActions& operator=(const PowerActions&) = delete;

  void suspend();
  void powerOff();

 private:
  struct Impl;
  std::unique_ptr<Impl> _impl;
};

}  // namespace velorin
