// The reference: every operation in plain C++. Also what the SIMD kernels do with the last few
// elements of a run, so the two cannot drift apart.
#pragma once

#include <cstddef>
#include <cstdint>

namespace velorin::vector::scalar {

// Contracts: Vector.h and VectorKernels.h.
void fill(float value, float* out, std::size_t count) noexcept;
void multiplyByScalar(const float* in, float factor, float* out, std::size_t count) noexcept;
void multiplyAdd(const float* in, float factor, float* accumulator, std::size_t count) noexcept;
void add(const float* a, const float* b, float* out, std::size_t count) noexcept;
void subtract(const float* a, const float* b, float* out, std::size_t count) noexcept;
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
void packInt24(const std::int32_t* in, std::byte* out, std::size_t count) noexcept;

}  // namespace velorin::vector::scalar
