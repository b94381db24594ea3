// Keeps the machine awake while music plays.
#pragma once

#include <memory>

namespace velorin {

/// Holds a logind inhibitor lock (what "idle", who "Velorin", why "Velorin audio playback", mode
/// "block") between acquire() and release(): the machine does not go to sleep by itself, while a
/// user who asks for it or closes the lid is obeyed. Any thread but the render thread; both return
/// at once, the bus is asked in the background. Without a system bus or logind it says so once and
/// does nothing.
class SleepInhibitor {
 public:
  SleepInhibitor();
  /// Releases. Waits for a bus that is being asked, at most 2 s.
  ~SleepInhibitor();
  SleepInhibitor(const SleepInhibitor&) = delete;
  SleepInhibitor& operator=(const SleepInhibitor&) = delete;

  /// A second acquire() without a release() between changes nothing.
  void acquire();
  void release();

 private:
  struct Impl;
  std::shared_ptr<Impl> _impl;
};

}  // namespace velorin
