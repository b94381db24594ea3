// How the fill thread sleeps and is woken.
#pragma once

#include <chrono>

#include "foundation/Mutex.h"

namespace velorin {

/// What there is to do stands in TransportCells; this is the condition that the transport signals
/// after it has written there, for a wake-up at once. The render thread never signals: it could
/// block, and the fill thread knows by the clock when the ring has room again.
class FillWaker {
 public:
  /// Not the render thread: it could block there. Write the cell first.
  void signal() EXCLUDES(_mutex) {
    MutexLock hold(_mutex);
    _condition.notifyAll();
  }

  /// Fill thread. Sleeps until signalled or the time has passed, unless `skip` says, with the
  /// mutex held, that there is no need to.
  template <class Skip>
  void sleepFor(std::chrono::milliseconds time, Skip skip) EXCLUDES(_mutex) {
    MutexLock hold(_mutex);
    if (skip()) return;
    _condition.waitUntil(_mutex, std::chrono::steady_clock::now() + time);
  }

 private:
  Mutex _mutex;
  ConditionVariable _condition;
};

}  // namespace velorin
