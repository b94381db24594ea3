// The lock between an effect and whoever edits it: the render thread only ever tries it.
#pragma once

#include <atomic>
#include <chrono>
#include <thread>

#include "foundation/Mutex.h"

namespace velorin {

/// A word that is taken or free. Unlocking never calls the system, so that a render thread may do
/// it; in return a thread that waits looks again every now and then.
class CAPABILITY("mutex") RenderLock {
 public:
  /// Any thread, the render thread too. Never waits.
  bool tryLock() noexcept TRY_ACQUIRE(true) {
    return !_taken.exchange(true, std::memory_order_acquire);
  }
  /// Not the render thread. Waits at most as long as a render call takes.
  void lock() noexcept ACQUIRE() {
    while (_taken.exchange(true, std::memory_order_acquire)) {
      std::this_thread::sleep_for(std::chrono::microseconds(20));
    }
  }
  void unlock() noexcept RELEASE() { _taken.store(false, std::memory_order_release); }

 private:
  std::atomic<bool> _taken{false};
};

/// Holds it for a scope; not on the render thread.
class SCOPED_CAPABILITY RenderLockHold {
 public:
  explicit RenderLockHold(RenderLock& lock) noexcept ACQUIRE(lock) : _lock(lock) { _lock.lock(); }
  ~RenderLockHold() RELEASE() { _lock.unlock(); }
  RenderLockHold(const RenderLockHold&) = delete;
  RenderLockHold& operator=(const RenderLockHold&) = delete;

 private:
  RenderLock& _lock;
};

}  // namespace velorin
