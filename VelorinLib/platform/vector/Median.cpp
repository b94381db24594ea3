#include "platform/vector/Median.h"

#include <algorithm>
#include <bit>
#include <cstdint>

#include "platform/vector/VectorKernels.h"
#include "platform/vector/VectorScalar.h"

namespace velorin::vector {
namespace {

constexpr std::size_t kWindow = 21;

// The bits of a float as an integer of the same order; the same flip turns it back.
std::int32_t orderKey(std::int32_t bits) noexcept {
  return bits < 0 ? bits ^ INT32_MAX : bits;
}

std::int32_t keyOf(float value) noexcept {
  return orderKey(std::bit_cast<std::int32_t>(value));
}

}  // namespace

void medianOf21(const float* in, float* out, std::size_t count) noexcept {
  activeKernels().medianOf21(in, out, count);
}

// The reference: a sorted window in which the oldest value makes place for the newest.
void scalar::medianOf21(const float* in, float* out, std::size_t count) noexcept {
  if (count == 0) return;
  std::int32_t window[kWindow];
  for (std::size_t k = 0; k < kWindow; ++k) window[k] = keyOf(in[k]);
  std::sort(window, window + kWindow);
  for (std::size_t i = 0;; ++i) {
    out[i] = std::bit_cast<float>(orderKey(window[kWindow / 2]));
    if (i + 1 == count) return;
    const std::int32_t added = keyOf(in[i + kWindow]);
    std::int32_t* place = std::lower_bound(window, window + kWindow, keyOf(in[i]));
    for (; place + 1 < window + kWindow && place[1] < added; ++place) place[0] = place[1];
    for (; place > window && place[-1] > added; --place) place[0] = place[-1];
    *place = added;
  }
}

}  // namespace velorin::vector
