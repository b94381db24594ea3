#include "platform/vector/OneBit.h"

#include "platform/vector/VectorKernels.h"
#include "platform/vector/VectorScalar.h"

namespace velorin::vector {

void sumOneBitRows(const std::uint8_t* bytes, const double* rows, float* out,
                   std::size_t count) noexcept {
  activeKernels().sumOneBitRows(bytes, rows, out, count);
}

void scalar::sumOneBitRows(const std::uint8_t* bytes, const double* rows, float* out,
                           std::size_t count) noexcept {
  for (std::size_t i = 0; i < count; ++i) {
    double sum = 0;
    for (std::size_t k = 0; k < kOneBitSpan; ++k) {
      sum += rows[bytes[i + k] * kOneBitStride + kOneBitPadding + kOneBitSpan - 1 - k];
    }
    out[i] = static_cast<float>(sum);
  }
}

}  // namespace velorin::vector
