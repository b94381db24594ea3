// From one-bit sound to samples by table: the kernel under engine/dsd/DSDConverter.h.
//
// Contracts of instruction sets and threads as in Vector.h.
#pragma once

#include <cstddef>
#include <cstdint>

namespace velorin::vector {

/// Samples that one byte of one-bit sound has a share in: the filter is twelve bytes long.
inline constexpr std::size_t kOneBitSpan = 12;
/// Zeros on either side of a row, so that a register of four may begin before it.
inline constexpr std::size_t kOneBitPadding = 3;
inline constexpr std::size_t kOneBitStride = kOneBitSpan + 2 * kOneBitPadding;

/// out[i] = the sum over k = 0 .. 11 of rows[bytes[i + k] * kOneBitStride + kOneBitPadding + 11 -
/// k], rounded to float once. `bytes` holds count + 11 values.
///
/// `rows` has one row for each value of a byte: kOneBitPadding zeros, the byte's share in the
/// sample of its own time, in the one after it, … in the eleventh after it, and zeros again. All
/// are multiples of 2^-52 and no twelve of them add up to 2 or more, so that every sum of them is
/// exact and the order of the additions does not matter.
void sumOneBitRows(const std::uint8_t* bytes, const double* rows, float* out,
                   std::size_t count) noexcept;

}  // namespace velorin::vector
