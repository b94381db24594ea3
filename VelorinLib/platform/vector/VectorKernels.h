// The kernels behind Vector.h and PCMPacking.h, one table per instruction set.
//
// For the vector layer itself, its tests and its benches. Everyone else calls Vector.h.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace velorin::vector {

struct BiquadPairs;
struct HalfBandTaps;

/// Instruction sets, slowest first.
enum class Level { scalar, sse2, avx2, avx512 };

/// What each instruction set implements. Contracts as in Vector.h; those that are not there:
struct Kernels {
  void (*fill)(float, float*, std::size_t) noexcept;
  void (*multiplyByScalar)(const float*, float, float*, std::size_t) noexcept;
  void (*multiplyAdd)(const float*, float, float*, std::size_t) noexcept;
  void (*add)(const float*, const float*, float*, std::size_t) noexcept;
  void (*subtract)(const float*, const float*, float*, std::size_t) noexcept;
  void (*multiply)(const float*, const float*, float*, std::size_t) noexcept;
  void (*weightedSum)(const float*, float, const float*, float, float*, std::size_t) noexcept;
  void (*negate)(const float*, float*, std::size_t) noexcept;
  void (*absolute)(const float*, float*, std::size_t) noexcept;
  void (*square)(const float*, float*, std::size_t) noexcept;
  void (*squareRoot)(const float*, float*, std::size_t) noexcept;
  void (*roundToNearest)(const float*, float*, std::size_t) noexcept;
  void (*tanh)(const float*, float*, std::size_t) noexcept;
  void (*swap)(float*, float*, std::size_t) noexcept;
  void (*clip)(const float*, float, float, float*, std::size_t) noexcept;
  float (*maxMagnitude)(const float*, std::size_t) noexcept;
  void (*int16ToFloat)(const std::int16_t*, float, float*, std::size_t) noexcept;
  void (*int24ToFloat)(const std::byte*, float, float*, std::size_t) noexcept;
  void (*int32ToFloat)(const std::int32_t*, float, float*, std::size_t) noexcept;
  void (*floatToDouble)(const float*, double*, std::size_t) noexcept;
  void (*doubleToFloat)(const double*, float*, std::size_t) noexcept;
  void (*doubleToInt32)(const double*, std::int32_t*, std::size_t) noexcept;
  void (*doubleToInt16)(const double*, std::int16_t*, std::size_t) noexcept;
  void (*floatToInt32)(const float*, unsigned, std::int32_t*, std::size_t) noexcept;
  void (*clipInt32)(const std::int32_t*, std::int32_t, std::int32_t, std::int32_t*,
                    std::size_t) noexcept;
  void (*shiftLeftInt32)(const std::int32_t*, unsigned, std::int32_t*, std::size_t) noexcept;
  void (*shiftRightInt32)(const std::int32_t*, unsigned, std::int32_t*, std::size_t) noexcept;
  void (*shiftLeftToInt16)(const std::int32_t*, unsigned, std::int16_t*, std::size_t) noexcept;
  void (*int16ToInt32)(const std::int16_t*, unsigned, std::int32_t*, std::size_t) noexcept;

  /// Two runs of 2-byte or 4-byte words to pairs, and back. The interleaved side is bytes and
  /// may have any alignment.
  void (*interleavePairs16)(const void*, const void*, std::byte*, std::size_t) noexcept;
  void (*interleavePairs32)(const void*, const void*, std::byte*, std::size_t) noexcept;
  void (*deinterleavePairs16)(const std::byte*, void*, void*, std::size_t) noexcept;
  void (*deinterleavePairs32)(const std::byte*, void*, void*, std::size_t) noexcept;

  /// As in BiquadKernels.h.
  void (*filterPairs)(const BiquadPairs&, double*, std::size_t) noexcept;
  unsigned (*brokenStreams)(const double*, std::size_t) noexcept;

  /// As in OneBit.h and HalfBand.h.
  void (*sumOneBitRows)(const std::uint8_t*, const double*, float*, std::size_t) noexcept;
  void (*halfBand)(const float*, const float*, const HalfBandTaps&, float*, std::size_t) noexcept;

  /// As in Median.h.
  void (*medianOf21)(const float*, float*, std::size_t) noexcept;

  /// The low three bytes of each word, little-endian.
  void (*packInt24)(const std::int32_t*, std::byte*, std::size_t) noexcept;
};

/// Levels that this build holds and this processor can run, slowest first.
std::span<const Level> availableLevels() noexcept;

/// The table of one of the available levels.
const Kernels& kernels(Level level) noexcept;

/// The table in use. Any thread, the render thread included.
const Kernels& activeKernels() noexcept;

/// Replaces the table in use, for tests and benches: results do not depend on it.
void setLevel(Level level) noexcept;

namespace detail {
extern const Kernels kScalarKernels;
#if defined(__x86_64__)
extern const Kernels kSse2Kernels;
extern const Kernels kAvx2Kernels;
extern const Kernels kAvx512Kernels;
#endif
}  // namespace detail

}  // namespace velorin::vector
