// Medians of a sliding window: the kernel under dsp/filters/RunningMedian.h.
//
// Contracts of instruction sets and threads as in Vector.h.
#pragma once

#include <cstddef>

namespace velorin::vector {

/// out[i] = the eleventh of in[i] .. in[i + 20] in ascending order. `in` holds count + 20 values
/// and does not overlap `out`. The order is total: -0 before 0, NaNs beyond the infinities on the
/// side of their sign. Every instruction set gives the same bits.
void medianOf21(const float* in, float* out, std::size_t count) noexcept;

}  // namespace velorin::vector
