// Filters that belong to one sample rate, made by whoever changes a setting and used by the render
// thread.
#pragma once

#include <atomic>
#include <cmath>
#include <memory>

#include "foundation/RenderLock.h"

namespace velorin {

/// Holds what an effect has designed for a rate. The render thread never designs: a block of
/// another rate marks the state as unfit, and audio passes dry until the next install().
template <class State>
class RateState {
 public:
  /// Puts a new state in its place and destroys the old one outside the lock. `adopt(next, old)`,
  /// where there is an old one, is called under the lock to carry something over. Not the render
  /// thread; one caller at a time.
  template <class Adopt>
  void install(std::unique_ptr<State> next, double rate, Adopt&& adopt) {
    // The parameter, which takes the old state, outlives the hold.
    const RenderLockHold hold(_lock);
    if (_state) adopt(*next, *_state);
    _state.swap(next);
    _rate.store(rate, std::memory_order_relaxed);
    _needsRebuild.store(false, std::memory_order_relaxed);
  }
  void install(std::unique_ptr<State> next, double rate) {
    install(std::move(next), rate, [](State&, State&) {});
  }

  /// The rate of the state in Hz, 0 before the first. Any thread.
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

  /// Render thread. Rates that differ by 1 Hz or less are one.
  bool fits(double sampleRate) noexcept {
    if (std::fabs(sampleRate - rate()) > 1.0) invalidate();
    return !_needsRebuild.load(std::memory_order_relaxed);
  }
  void invalidate() noexcept { _needsRebuild.store(true, std::memory_order_relaxed); }

  /// Render thread, after fits(). Empty when somebody holds the lock, or without a state.
  Use tryUse() noexcept NO_THREAD_SAFETY_ANALYSIS {
    if (!_lock.tryLock()) return {};
    if (_state) return {_lock, _state.get()};
    _lock.unlock();
    return {};
  }

 private:
  RenderLock _lock;
  std::unique_ptr<State> _state;  // under _lock
  std::atomic<double> _rate{0};
  std::atomic<bool> _needsRebuild{true};
};

}  // namespace velorin
