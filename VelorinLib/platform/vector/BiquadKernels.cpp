#include "platform/vector/BiquadKernels.h"

#include <cmath>

#include "platform/vector/VectorKernels.h"
#include "platform/vector/VectorScalar.h"

namespace velorin::vector {

void filterPairs(const BiquadPairs& cascade, double* samples, std::size_t frames) noexcept {
  activeKernels().filterPairs(cascade, samples, frames);
}

unsigned brokenStreams(const double* values, std::size_t pairs) noexcept {
  return activeKernels().brokenStreams(values, pairs);
}

// The reference: one section after the other.
void scalar::filterPairs(const BiquadPairs& c, double* samples, std::size_t frames) noexcept {
  for (std::size_t k = 0; k < 2 * c.sections; ++k) {
    double s1 = c.s1[k];
    double s2 = c.s2[k];
    for (std::size_t i = k % 2; i < 2 * frames; i += 2) {
      const double x = samples[i];
      const double y = c.b0[k] * x + s1;
      s1 = (c.b1[k] * x + s2) - c.a1[k] * y;
      s2 = c.b2[k] * x - c.a2[k] * y;
      samples[i] = y;
    }
    c.s1[k] = s1;
    c.s2[k] = s2;
  }
}

unsigned scalar::brokenStreams(const double* values, std::size_t pairs) noexcept {
  unsigned found = 0;
  for (std::size_t i = 0; i < 2 * pairs; ++i) {
    if (!std::isfinite(values[i])) found |= 1u << i % 2;
  }
  return found;
}

}  // namespace velorin::vector
