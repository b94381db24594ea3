// Several presses of "next" in a row start one track: the one that is reached at last.
#pragma once

#include <chrono>
#include <functional>

#include "foundation/MainThread.h"

namespace velorin {

/// Main thread. While a burst runs, what is shown moves and the engine does not.
class SkipBurst {
 public:
  static constexpr std::chrono::milliseconds kQuiet{300};

  bool isRunning() const noexcept { return _timer.isRunning(); }
  /// True inside tap(): steps only move what is shown.
  bool isMoving() const noexcept { return _isMoving; }

  /// One press: moves, and calls `settle` once no other press has followed for a while.
  void tap(const std::function<void()>& move, std::function<void()> settle) {
    _isMoving = true;
    move();
    _isMoving = false;
    _timer.start(kQuiet, [this, settle = std::move(settle)] {
      _timer.stop();
      settle();
    });
  }

  /// Another wish came between. True when a burst was running.
  bool cancel() {
    const bool wasRunning = isRunning();
    _timer.stop();
    return wasRunning;
  }

 private:
  RepeatingTimer _timer;
  bool _isMoving = false;
};

}  // namespace velorin
