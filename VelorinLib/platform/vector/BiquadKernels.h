// Second-order filter sections over two streams at once, in double precision.
//
// The kernel under dsp/filters/BiquadCascade.h; contracts of instruction sets, threads and pointers
// as in Vector.h: every instruction set gives the same bits.
#pragma once

#include <cstddef>

namespace velorin::vector {

/// Sections in order, each a transposed direct form II:
///
///     y  = b0 x + s1
///     s1 = (b1 x + s2) - a1 y
///     s2 = b2 x - a2 y
///
/// with every product rounded. A run holds the value of section k for the two streams at 2k and
/// 2k + 1. Runs are allocated up to a multiple of kBiquadPadding sections, with zeros behind the
/// last; what the padding of the state holds afterwards is nobody's concern.
struct BiquadPairs {
  std::size_t sections = 0;
  const double* b0 = nullptr;
  const double* b1 = nullptr;
  const double* b2 = nullptr;
  const double* a1 = nullptr;
  const double* a2 = nullptr;
  double* s1 = nullptr;
  double* s2 = nullptr;
};

inline constexpr std::size_t kBiquadPadding = 4;

/// Filters `frames` pairs of samples in place. Sections run side by side in the processor's
/// registers, each one sample behind the one before it; the result is that of one after the other.
void filterPairs(const BiquadPairs& cascade, double* samples, std::size_t frames) noexcept;

/// Which of the two streams hold a value that is not finite: bit 0 and bit 1.
unsigned brokenStreams(const double* values, std::size_t pairs) noexcept;

}  // namespace velorin::vector
