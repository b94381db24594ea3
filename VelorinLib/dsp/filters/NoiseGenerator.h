// Pseudo-random numbers for noise: quick, repeatable, good enough for the ear.
#pragma once

#include <cstddef>
#include <cstdint>

namespace velorin {

/// Linear congruential: state = 1664525 state + 1013904223 modulo 2^32 (W. H. Press et al.,
/// "Numerical Recipes", 1992).
class NoiseGenerator {
 public:
  explicit constexpr NoiseGenerator(std::uint32_t state) noexcept : _state(state) {}

  constexpr std::uint32_t draw() noexcept {
    _state = kFactor * _state + kTerm;
    return _state;
  }

  /// -0.5 up to 0.5
  float drawSigned() noexcept {
    return static_cast<float>(static_cast<std::int32_t>(draw())) * 0x1p-32f;
  }
  /// 0 up to 1
  float drawUnsigned() noexcept { return static_cast<float>(draw()) * 0x1p-32f; }

  /// As after so many draws, in the time of a few.
  constexpr NoiseGenerator ahead(std::uint64_t draws) const noexcept {
    std::uint32_t factor = kFactor;
    std::uint32_t term = kTerm;
    std::uint32_t state = _state;
    for (; draws != 0; draws >>= 1) {
      if ((draws & 1) != 0) state = factor * state + term;
      // Twice the step so far.
      term *= factor + 1;
      factor *= factor;
    }
    return NoiseGenerator(state);
  }

 private:
  static constexpr std::uint32_t kFactor = 1664525;
  static constexpr std::uint32_t kTerm = 1013904223;

  std::uint32_t _state;
};

}  // namespace velorin
