// What a worker that may be left behind passes before it touches what it does not own.
#pragma once

#include <cstddef>

#include "foundation/Mutex.h"

namespace velorin {

/// A file system that does not answer holds a worker for any time; when it comes back, the database
/// may be gone. So it does its reading outside and enters to store. Any number of threads.
class WorkGate {
 public:
  /// Inside as long as it lives, if it was let in.
  class Pass {
   public:
    explicit Pass(WorkGate& gate) : _gate(gate.enter() ? &gate : nullptr) {}
    ~Pass() {
      if (_gate != nullptr) _gate->leave();
    }
    Pass(const Pass&) = delete;
    Pass& operator=(const Pass&) = delete;

    explicit operator bool() const noexcept { return _gate != nullptr; }

   private:
    WorkGate* const _gate;
  };

  /// Nobody is let in any more; waits for those inside.
  void close() {
    const MutexLock lock(_lock);
    _isClosed = true;
    while (_inside > 0) _left.wait(_lock);
  }

 private:
  bool enter() {
    const MutexLock lock(_lock);
    if (!_isClosed) ++_inside;
    return !_isClosed;
  }
  void leave() {
    const MutexLock lock(_lock);
    if (--_inside == 0) _left.notifyAll();
  }

  Mutex _lock;
  ConditionVariable _left;
  bool _isClosed GUARDED_BY(_lock) = false;
  std::size_t _inside GUARDED_BY(_lock) = 0;
};

}  // namespace velorin
