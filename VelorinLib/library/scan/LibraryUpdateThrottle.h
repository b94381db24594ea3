// While a scan inserts, the interface is told now and then.
#pragma once

#include <chrono>
#include <optional>

#include "foundation/EventBus.h"
#include "foundation/Mutex.h"

namespace velorin {

/// Posts LibraryDidUpdate on the main thread, at most once in the interval. Any thread.
class LibraryUpdateThrottle {
 public:
  static constexpr std::chrono::seconds kInterval{5};

  explicit LibraryUpdateThrottle(EventBus& events, std::chrono::milliseconds interval = kInterval)
      : _events(events), _interval(interval) {}

  /// The library has changed. A change that is not told here is told by the end of the scan.
  void libraryChanged();

 private:
  using Clock = std::chrono::steady_clock;

  EventBus& _events;
  const std::chrono::milliseconds _interval;
  Mutex _lock;
  std::optional<Clock::time_point> _lastPost GUARDED_BY(_lock);
};

}  // namespace velorin
