// A real-time class for a thread that must meet deadlines.
#pragma once

#include <string>

namespace velorin {

struct ThreadPriority {
  bool isRealtime = false;  ///< read back from the kernel, not what was asked
  /// "SCHED_FIFO 60", "SCHED_RR 20 by RealtimeKit", "nice -11", "normal".
  std::string scheduling;
};

/// What is asked for: above ordinary real-time work, below the kernel's interrupt threads (50 and
/// up only where those are threaded) and the sound servers (88).
inline constexpr int kAudioThreadPriority = 60;

/// Raises the calling thread as far as the system allows, trying in this order:
///   1. SCHED_FIFO at `priority`, or at what RLIMIT_RTPRIO leaves;
///   2. RealtimeKit on the system bus, after limiting the time a real-time thread may run without
///      sleeping to what it demands (RLIMIT_RTTIME);
///   3. nice -11, also by RealtimeKit;
///   4. nothing.
/// Children of the thread start with normal scheduling. Call at the start of a thread, outside the
/// realtime scope: it may wait for the bus, at most about a second.
ThreadPriority raiseThreadPriority(int priority = kAudioThreadPriority);

/// Back to normal scheduling: for a thread that turns out never to sleep, which under a real-time
/// class would take a core for itself. A system call that does not wait.
void dropThreadPriority() noexcept;

}  // namespace velorin
