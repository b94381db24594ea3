// The thread on which everything of PipeWire but the sound itself happens, and its lock.
#pragma once

#include <pipewire/pipewire.h>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <vector>

#include "foundation/Mutex.h"
#include "platform/audio/AudioTypes.h"

namespace velorin {

/// Owns a pw_thread_loop and the pw_context that lives in it.
///
/// The loop is a lock: libpipewire may be called by whoever holds it, and its callbacks (all but
/// `process`) run on the loop's thread with the lock held. The lock is recursive, but waitUntil()
/// gives up one level only. Nothing that holds it waits for anybody else for more than
/// milliseconds.
class CAPABILITY("PipeWire loop") PipeWireLoop {
 public:
  using Task = std::function<void()>;
  using Clock = std::chrono::steady_clock;

  /// Starts the thread; null with a status when the library is not usable.
  static std::unique_ptr<PipeWireLoop> create(AudioStatus& status);

  /// Ends the thread. The lock must not be held.
  ~PipeWireLoop();
  PipeWireLoop(const PipeWireLoop&) = delete;
  PipeWireLoop& operator=(const PipeWireLoop&) = delete;

  /// Not from the render thread.
  void lock() ACQUIRE() { pw_thread_loop_lock(_loop); }
  void unlock() RELEASE() { pw_thread_loop_unlock(_loop); }

  pw_loop* loop() const noexcept { return pw_thread_loop_get_loop(_loop); }
  pw_context* context() const noexcept { return _context; }

  /// Waits until the condition holds, evaluated under the lock after each signal() and at least
  /// once per `poll`. False when the deadline passed first. Not on the loop's own thread.
  bool waitUntil(Clock::time_point deadline, const std::function<bool()>& condition,
                 std::chrono::milliseconds poll = std::chrono::milliseconds(100)) REQUIRES(this);

  /// Makes waitUntil() look again.
  void signal() { pw_thread_loop_signal(_loop, false); }

  /// Runs the task on the loop's thread with the lock held, no earlier than after the delay. A
  /// task that is still waiting when the thread ends is dropped. Any thread but the render thread.
  void defer(Task task, std::chrono::milliseconds delay = {});

  /// Ends the thread early, so that what its tasks refer to can be destroyed. Once.
  void stop();

 private:
  PipeWireLoop() = default;
  bool open();
  void runDue();
  void arm(Clock::time_point due);

  pw_thread_loop* _loop = nullptr;
  pw_context* _context = nullptr;
  spa_source* _timer = nullptr;
  bool _running = false;

  Mutex _mutex;
  std::multimap<Clock::time_point, Task> _tasks GUARDED_BY(_mutex);
};

using PipeWireLock = BasicLock<PipeWireLoop>;

}  // namespace velorin
