#include "platform/vector/HalfBand.h"

#include "platform/vector/VectorKernels.h"
#include "platform/vector/VectorScalar.h"

namespace velorin::vector {

void halfBand(const float* even, const float* odd, const HalfBandTaps& taps, float* out,
              std::size_t count) noexcept {
  activeKernels().halfBand(even, odd, taps, out, count);
}

void scalar::halfBand(const float* even, const float* odd, const HalfBandTaps& taps, float* out,
                      std::size_t count) noexcept {
  for (std::size_t i = 0; i < count; ++i) {
    float sum = taps.pairs[0] * (even[i] + even[i + 11]);
    for (std::size_t k = 1; k < 6; ++k) sum += taps.pairs[k] * (even[i + k] + even[i + 11 - k]);
    out[i] = sum + taps.centre * odd[i];
  }
}

}  // namespace velorin::vector
