// The reference: every operation in plain C++. Also what the SIMD kernels do with the last few
// elements of a run, so the two cannot drift apart.
#pragma once

#include <cstddef>
#include <cstdint>

namespace velorin::vector::tanh_constants {

inline constexpr float kNear = 0.625f;  ///< below, the polynomial in x^2 serves
inline constexpr float kLimit = 20;     ///< of 2|x|: from there on tanh is 1
inline constexpr float kLog2OfE = 1.44269504f;
/// ln 2 in two parts; the first has so few bits that its multiples up to 30 are exact.
inline constexpr float kLn2High = 0.693359375f;
inline constexpr float kLn2Low = -2.12194440e-4f;

// Polynomials of least largest relative error, highest power first.

/// (tanh(x) / x - 1) / x^2 in powers of x^2: tanh to 4.5e-9 below kNear.
inline constexpr float kTanh[] = {-5.70110232e-3f, 2.06357464e-2f, -5.37387356e-2f, 1.33314312e-1f,
                                  -3.33332807e-1f};
/// (exp(r) - 1 - r) / r^2: exp(r) - 1 to 1.4e-8 for |r| <= ln 2 / 2.
inline constexpr float kExp[] = {1.38824573e-3f, 8.36654566e-3f, 4.16672006e-2f, 1.66665435e-1f,
                                 4.99999970e-1f};

}  // namespace velorin::vector::tanh_constants

namespace velorin::vector {
struct BiquadPairs;
struct HalfBandTaps;
}  // namespace velorin::vector

namespace velorin::vector::scalar {

// Contracts: Vector.h and VectorKernels.h.
void fill(float value, float* out, std::size_t count) noexcept;
void multiplyByScalar(const float* in, float factor, float* out, std::size_t count) noexcept;
void multiplyAdd(const float* in, float factor, float* accumulator, std::size_t count) noexcept;
void add(const float* a, const float* b, float* out, std::size_t count) noexcept;
void subtract(const float* a, const float* b, float* out, std::size_t count) noexcept;
void multiply(const float* a, const float* b, float* out, std::size_t count) noexcept;
void weightedSum(const float* a, float gainA, const float* b, float gainB, float* out,
                 std::size_t count) noexcept;
void negate(const float* in, float* out, std::size_t count) noexcept;
void absolute(const float* in, float* out, std::size_t count) noexcept;
void square(const float* in, float* out, std::size_t count) noexcept;
void squareRoot(const float* in, float* out, std::size_t count) noexcept;
void roundToNearest(const float* in, float* out, std::size_t count) noexcept;
void tanh(const float* in, float* out, std::size_t count) noexcept;
void swap(float* a, float* b, std::size_t count) noexcept;
void clip(const float* in, float low, float high, float* out, std::size_t count) noexcept;
float maxMagnitude(const float* in, std::size_t count) noexcept;
void int16ToFloat(const std::int16_t* in, float factor, float* out, std::size_t count) noexcept;
void int24ToFloat(const std::byte* in, float factor, float* out, std::size_t count) noexcept;
void int32ToFloat(const std::int32_t* in, float factor, float* out, std::size_t count) noexcept;
void floatToDouble(const float* in, double* out, std::size_t count) noexcept;
void doubleToFloat(const double* in, float* out, std::size_t count) noexcept;
void doubleToInt32(const double* in, std::int32_t* out, std::size_t count) noexcept;
void doubleToInt16(const double* in, std::int16_t* out, std::size_t count) noexcept;
void floatToInt32(const float* in, unsigned bits, std::int32_t* out, std::size_t count) noexcept;
void clipInt32(const std::int32_t* in, std::int32_t low, std::int32_t high, std::int32_t* out,
               std::size_t count) noexcept;
void shiftLeftInt32(const std::int32_t* in, unsigned bits, std::int32_t* out,
                    std::size_t count) noexcept;
void shiftRightInt32(const std::int32_t* in, unsigned bits, std::int32_t* out,
                     std::size_t count) noexcept;
void shiftLeftToInt16(const std::int32_t* in, unsigned bits, std::int16_t* out,
                      std::size_t count) noexcept;
void int16ToInt32(const std::int16_t* in, unsigned bits, std::int32_t* out,
                  std::size_t count) noexcept;
void interleavePairs16(const void* a, const void* b, std::byte* out, std::size_t count) noexcept;
void interleavePairs32(const void* a, const void* b, std::byte* out, std::size_t count) noexcept;
void deinterleavePairs16(const std::byte* in, void* a, void* b, std::size_t count) noexcept;
void deinterleavePairs32(const std::byte* in, void* a, void* b, std::size_t count) noexcept;
void filterPairs(const BiquadPairs& cascade, double* samples, std::size_t frames) noexcept;
unsigned brokenStreams(const double* values, std::size_t pairs) noexcept;
void sumOneBitRows(const std::uint8_t* bytes, const double* rows, float* out,
                   std::size_t count) noexcept;
void halfBand(const float* even, const float* odd, const HalfBandTaps& taps, float* out,
              std::size_t count) noexcept;
void medianOf21(const float* in, float* out, std::size_t count) noexcept;
void packInt24(const std::int32_t* in, std::byte* out, std::size_t count) noexcept;

}  // namespace velorin::vector::scalar
