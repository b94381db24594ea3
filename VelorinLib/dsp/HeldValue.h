// A parameter of an effect: a number that is held within its limits.
#pragma once

#include <algorithm>
#include <atomic>
#include <cmath>
#include <type_traits>

namespace velorin {

/// Set on any thread but the render thread, read on any. What is set may come from a file that
/// somebody wrote: a value beyond the limits becomes the nearer of them, a NaN the initial value;
/// of an integer the nearest is taken.
template <class Number>
class HeldValue {
 public:
  constexpr HeldValue(Number low, Number high, Number initial) noexcept
      : _low(low), _high(high), _initial(initial), _value(initial) {}

  void set(double value) noexcept {
    double held =
        std::isnan(value) ? static_cast<double>(_initial) : std::clamp<double>(value, _low, _high);
    if constexpr (std::is_integral_v<Number>) held = std::round(held);
    _value.store(static_cast<Number>(held), std::memory_order_relaxed);
  }
  Number get() const noexcept { return _value.load(std::memory_order_relaxed); }

 private:
  const Number _low;
  const Number _high;
  const Number _initial;
  std::atomic<Number> _value;
};

/// The choice nearest to an index that may be any number; a NaN is the first.
template <class Choice>
Choice choiceOf(double index, Choice last) noexcept {
  const double held = std::isnan(index) ? 0 : std::clamp<double>(index, 0, static_cast<int>(last));
  return static_cast<Choice>(std::lround(held));
}

}  // namespace velorin
