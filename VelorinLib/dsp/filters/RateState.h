// Filters that belong to one sample rate, made by whoever changes a setting and used by the render
// thread.
#pragma once

#include <atomic>
#include <cmath>
#include <memory>
#include <utility>

#include "foundation/Mutex.h"
#include "foundation/RenderLock.h"

namespace velorin {

/// Holds what an effect has designed for a rate. The render thread never designs: a block of
/// another rate marks the state as unfit, and audio passes dry until the next design.
///
/// `design(rate)` returns a std::unique_ptr<State> and reads the effect's parameters; designs are
/// made one at a time, so that the state of the last one has the parameters that were set last.
/// `adopt(next, old)` carries something over from the state that is replaced, out of reach of the
/// render thread; it must be quick. States are made and destroyed outside the lock.
template <class State>
class RateState {
 public:
  /// Not the render thread. A rate in Hz that is none, 0 or less or a gigahertz, is passed over.
  template <class Design, class Adopt>
  void designFor(double rate, Design&& design, Adopt&& adopt) EXCLUDES(_editing, _lock) {
    if (!(rate > 0 && rate < 1e9)) return;
    const MutexLock editing(_editing);
    install(design(rate), rate, adopt);
  }
  template <class Design>
  void designFor(double rate, Design&& design) EXCLUDES(_editing, _lock) {
    designFor(rate, design, [](State&, State&) {});
  }

  /// The same at the rate of the last design; does nothing before the first.
  template <class Design, class Adopt>
  void redesign(Design&& design, Adopt&& adopt) EXCLUDES(_editing, _lock) {
    const MutexLock editing(_editing);
    if (const double now = rate(); now > 0) install(design(now), now, adopt);
  }
  template <class Design>
  void redesign(Design&& design) EXCLUDES(_editing, _lock) {
    redesign(design, [](State&, State&) {});
  }

  /// Of the last design in Hz, 0 before the first. Any thread.
  double rate() const noexcept { return _rate.load(std::memory_order_relaxed); }

  /// The render thread's hold on the state; empty when the block has to pass dry.
  class Use {
   public:
    Use() = default;
    Use(RenderLock& lock, State* state) noexcept : _lock(&lock), _state(state) {}
    ~Use() NO_THREAD_SAFETY_ANALYSIS {
      if (_lock != nullptr) _lock->unlock();
    }
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;

    explicit operator bool() const noexcept { return _state != nullptr; }
    State& operator*() const noexcept { return *_state; }
    State* operator->() const noexcept { return _state; }

   private:
    RenderLock* _lock = nullptr;
    State* _state = nullptr;
  };

  /// Render thread. Empty when an editor is at it and when the state is not for this rate; rates
  /// that differ by `tolerance` Hz or less are one.
  Use use(double sampleRate, double tolerance = 1.0) noexcept NO_THREAD_SAFETY_ANALYSIS {
    if (!_lock.tryLock()) return {};
    // Under the lock, so that no design is marked that was made meanwhile.
    if (!(std::fabs(sampleRate - rate()) <= tolerance)) _needsRebuild = true;
    if (_state && !_needsRebuild) return {_lock, _state.get()};
    _lock.unlock();
    return {};
  }

  /// Render thread. The same, whatever rate the state is for.
  Use useAtAnyRate() noexcept NO_THREAD_SAFETY_ANALYSIS {
    if (!_lock.tryLock()) return {};
    if (_state) return {_lock, _state.get()};
    _lock.unlock();
    return {};
  }

  /// What use() tries: whoever holds it makes blocks pass dry.
  RenderLock& lock() noexcept { return _lock; }

 private:
  template <class Adopt>
  void install(std::unique_ptr<State> next, double rate, Adopt&& adopt) REQUIRES(_editing)
      EXCLUDES(_lock) {
    // The parameter, which takes the old state, outlives the hold.
    const RenderLockHold hold(_lock);
    if (_state) adopt(*next, *_state);
    _state.swap(next);
    _rate.store(rate, std::memory_order_relaxed);
    _needsRebuild = false;
  }

  Mutex _editing;  ///< taken before _lock
  RenderLock _lock;
  std::unique_ptr<State> _state GUARDED_BY(_lock);
  bool _needsRebuild GUARDED_BY(_lock) = true;
  std::atomic<double> _rate{0};  ///< written under both
};

}  // namespace velorin
