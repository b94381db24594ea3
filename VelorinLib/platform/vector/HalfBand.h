// Halving a sample rate: the kernel under engine/dsd/HalfBandStage.h.
//
// Contracts of instruction sets and threads as in Vector.h.
#pragma once

#include <cstddef>

namespace velorin::vector {

/// A symmetric filter of 23 taps, every second of which is zero but the one in the middle.
struct HalfBandTaps {
  float pairs[6];  ///< taps 0, 2, 4, 6, 8, 10, which are also taps 22, 20, 18, 16, 14, 12
  float centre;    ///< tap 11
};

/// out[i] = the filter's result for the 23 samples whose even ones are even[i] .. even[i + 11] and
/// whose middle one is odd[i]: the sum, in this order and each product and sum rounded to float, of
/// pairs[k] * (even[i + k] + even[i + 11 - k]) for k = 0 .. 5 and of centre * odd[i]. `even` holds
/// count + 11 values, `odd` count; `out` overlaps neither.
void halfBand(const float* even, const float* odd, const HalfBandTaps& taps, float* out,
              std::size_t count) noexcept;

}  // namespace velorin::vector
