// One halving of the sample rate.
#pragma once

#include <cstddef>
#include <vector>

namespace velorin {

/// A 23-tap half-band low-pass that gives one sample for every two. Its input may come in runs of
/// any length, odd ones too: the output is the same. Before the first sample there was silence.
/// Only the constructor allocates.
class HalfBandStage {
 public:
  /// For runs of at most so many samples. Throws std::bad_alloc.
  explicit HalfBandStage(std::size_t longestRun);

  /// Takes `count` samples and returns how many it wrote to `out`, half of them. Where one sample
  /// was left of the run before, it counts as well. `out` does not overlap `in`.
  std::size_t process(const float* in, std::size_t count, float* out) noexcept;

  /// Silence again.
  void reset() noexcept;

  /// Goes on where another one stands.
  void continueFrom(const HalfBandStage& before) noexcept;

 private:
  // The samples by their parity, those of before in front: what the filter still needs.
  static constexpr std::size_t kEvenHistory = 11;
  static constexpr std::size_t kOddHistory = 6;

  std::vector<float> _even;
  std::vector<float> _odd;
  bool _hasSingle = false;  // an even sample came whose odd one is to follow
};

}  // namespace velorin
