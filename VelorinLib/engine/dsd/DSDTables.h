// The constants of dsd2pcm and what is computed from them once for the process.
#pragma once

#include <array>
#include <cstdint>

#include "platform/vector/OneBit.h"

namespace velorin {

/// Of the 96-tap low-pass filter that turns one-bit sound into samples at an eighth of its rate.
struct DSDTables {
  /// Table 5 - k, entry e: the sum over m = 0 .. 7 of the half-taps 8 k + m, each added where bit
  /// 7 - m of e is set and subtracted where it is not. Table 0 is for the filter's two ends, table
  /// 5 for its middle.
  std::array<std::array<float, 256>, 6> lookup;
  std::array<std::uint8_t, 256> reversed;  ///< the eight bits of a byte in reverse order

  /// The lookup tables by byte instead of by place, as vector::sumOneBitRows() takes them: for
  /// bytes with their oldest sample on top, and at the bottom. Twelve entries stand side by side,
  /// and one look at a byte serves all samples it has a share in. Rounded to multiples of 2^-52,
  /// which is above the last bit of none but the smallest entries of table 0, so that sums are
  /// exact.
  using Rows = std::array<double, 256 * vector::kOneBitStride>;
  Rows mostSignificantFirst;
  Rows leastSignificantFirst;

  /// Any thread; the first call computes them.
  static const DSDTables& shared();
};

}  // namespace velorin
