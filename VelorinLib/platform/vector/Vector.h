// Arithmetic on runs of samples: the one place where the program uses SIMD.
//
// Rules that hold for every function here
//   - `count` may be 0; pointers need the alignment of their element type, no more.
//   - `out` may be the same pointer as an input of the same element type (work in place). Runs
//     that overlap in any other way are not allowed.
//   - No function allocates, locks, throws or makes a system call: all may be called on the
//     render thread.
//   - The fastest instruction set of the processor is chosen once, at start. Every instruction
//     set gives the same result, bit for bit (a NaN stays a NaN, its payload is not specified):
//     products are rounded before they are added, and conversions round to nearest, ties to
//     even, unless told otherwise.
#pragma once

#include <cstddef>
#include <cstdint>

namespace velorin::vector {

// Float runs

/// out[i] = value
void fill(float value, float* out, std::size_t count) noexcept;

/// out[i] = in[i] * factor
void multiplyByScalar(const float* in, float factor, float* out, std::size_t count) noexcept;

/// accumulator[i] += in[i] * factor, with two roundings
void multiplyAdd(const float* in, float factor, float* accumulator, std::size_t count) noexcept;

/// out[i] = a[i] + b[i]
void add(const float* a, const float* b, float* out, std::size_t count) noexcept;

/// out[i] = a[i] - b[i]
void subtract(const float* a, const float* b, float* out, std::size_t count) noexcept;

/// out[i] = a[i] * b[i]
void multiply(const float* a, const float* b, float* out, std::size_t count) noexcept;

/// out[i] = a[i] * gainA + b[i] * gainB, with three roundings
void weightedSum(const float* a, float gainA, const float* b, float gainB, float* out,
                 std::size_t count) noexcept;

/// out[i] = -in[i], zeros and infinities included
void negate(const float* in, float* out, std::size_t count) noexcept;

/// out[i] = |in[i]|
void absolute(const float* in, float* out, std::size_t count) noexcept;

/// out[i] = in[i] * in[i]
void square(const float* in, float* out, std::size_t count) noexcept;

/// out[i] = the square root, correctly rounded; NaN below zero, -0 for -0.
void squareRoot(const float* in, float* out, std::size_t count) noexcept;

/// out[i] = the nearest whole number, ties to even, with the sign of in[i] where that is 0.
void roundToNearest(const float* in, float* out, std::size_t count) noexcept;

/// out[i] = tanh(in[i]) to within 1.5 units in the last place (1.34 for the worst of all floats),
/// odd, rising, never beyond 1; in[i] itself below 2^-14 in size, 1 or -1 from 9.1 on.
void tanh(const float* in, float* out, std::size_t count) noexcept;

/// Exchanges two runs, which must not overlap.
void swap(float* a, float* b, std::size_t count) noexcept;

/// out[i] = in[i] held within low..high (low <= high). A NaN counts as 0.
void clip(const float* in, float low, float high, float* out, std::size_t count) noexcept;

/// Largest |in[i]|, NaNs passed over; 0 for an empty run.
float maxMagnitude(const float* in, std::size_t count) noexcept;

// Integers to float

/// out[i] = float(in[i]) * factor. Exact for int16 when factor is a power of two.
void int16ToFloat(const std::int16_t* in, float factor, float* out, std::size_t count) noexcept;

/// The same for packed little-endian 24-bit words, 3 bytes each, in -2^23 .. 2^23 - 1.
void int24ToFloat(const std::byte* in, float factor, float* out, std::size_t count) noexcept;

/// The same for 32-bit words. More than 24 significant bits are rounded once, to nearest.
void int32ToFloat(const std::int32_t* in, float factor, float* out, std::size_t count) noexcept;

// Between float and double

/// Exact.
void floatToDouble(const float* in, double* out, std::size_t count) noexcept;

/// Rounds to nearest; what is beyond float's range becomes an infinity.
void doubleToFloat(const double* in, float* out, std::size_t count) noexcept;

// To integers, saturating: what is beyond the range becomes its nearest end, NaN becomes 0.

/// out[i] = in[i] * 2147483647.0, truncated toward zero.
void doubleToInt32(const double* in, std::int32_t* out, std::size_t count) noexcept;

/// out[i] = in[i] * 32767.0, truncated toward zero.
void doubleToInt16(const double* in, std::int16_t* out, std::size_t count) noexcept;

/// out[i] = in[i] * 2^(bits-1) rounded to nearest, in -2^(bits-1) .. 2^(bits-1) - 1. `bits` is
/// 2 to 32; the value sits in the low bits of the word, sign-extended.
void floatToInt32(const float* in, unsigned bits, std::int32_t* out, std::size_t count) noexcept;

// Integer runs

/// out[i] = in[i] held within low..high (low <= high)
void clipInt32(const std::int32_t* in, std::int32_t low, std::int32_t high, std::int32_t* out,
               std::size_t count) noexcept;

/// out[i] = in[i] << bits, bits 0 to 31. Bits that leave the word at the top are lost.
void shiftLeftInt32(const std::int32_t* in, unsigned bits, std::int32_t* out,
                    std::size_t count) noexcept;

/// out[i] = in[i] >> bits with the sign kept, bits 0 to 31: rounds toward minus infinity.
void shiftRightInt32(const std::int32_t* in, unsigned bits, std::int32_t* out,
                     std::size_t count) noexcept;

/// out[i] = in[i] << bits (as shiftLeftInt32), then saturated to 16 bits.
void shiftLeftToInt16(const std::int32_t* in, unsigned bits, std::int16_t* out,
                      std::size_t count) noexcept;

/// out[i] = in[i] << bits as a 32-bit word, bits 0 to 16.
void int16ToInt32(const std::int16_t* in, unsigned bits, std::int32_t* out,
                  std::size_t count) noexcept;

}  // namespace velorin::vector
