// How a scan that runs on other threads is cancelled, paused and told from the ones before it.
#pragma once

#include <atomic>
#include <cstdint>

#include "foundation/Mutex.h"

namespace velorin {

/// Any thread.
class ScanControl {
 public:
  /// A new request: what belongs to earlier ones is out of date. Returns its generation.
  std::uint64_t advance() noexcept { return ++_scanGeneration; }
  bool isCurrent(std::uint64_t generation) const noexcept { return _scanGeneration == generation; }

  /// Ends a pause too, so that whoever waits finds out.
  void cancel() {
    _cancelFlag = true;
    setPaused(false);
  }
  void clearCancel() noexcept { _cancelFlag = false; }
  bool isCancelled() const noexcept { return _cancelFlag; }

  /// Whether changes that the watcher tells are looked at.
  void setWatching(bool watching) noexcept { _isWatching = watching; }
  bool isWatching() const noexcept { return _isWatching; }

  void setPaused(bool paused) {
    const MutexLock lock(_pauseLock);
    _isPaused = paused;
    _pauseCondition.notifyAll();
  }
  /// Blocks while paused.
  void waitIfPaused() {
    const MutexLock lock(_pauseLock);
    while (_isPaused) _pauseCondition.wait(_pauseLock);
  }

 private:
  std::atomic<bool> _cancelFlag{false};
  std::atomic<bool> _isWatching{false};
  std::atomic<std::uint64_t> _scanGeneration{0};
  Mutex _pauseLock;
  ConditionVariable _pauseCondition;
  bool _isPaused GUARDED_BY(_pauseLock) = false;
};

}  // namespace velorin
