#include "platform/vector/Vector.h"

#include <array>
#include <atomic>

#include "platform/vector/VectorKernels.h"

namespace velorin::vector {
namespace {

struct Levels {
  std::array<Level, 4> items{};
  std::size_t count = 0;
};

Levels detectLevels() noexcept {
  Levels found;
  found.items[found.count++] = Level::scalar;
#if defined(__x86_64__)
  __builtin_cpu_init();
  found.items[found.count++] = Level::sse2;  // part of every x86-64 processor
  if (__builtin_cpu_supports("avx2")) {
    found.items[found.count++] = Level::avx2;
    if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
        __builtin_cpu_supports("avx512vl")) {
      found.items[found.count++] = Level::avx512;
    }
  }
#endif
  return found;
}

const Levels gLevels = detectLevels();

/// The level to work with. Not AVX-512: our runs are short and stand between other people's scalar
/// and 128-bit code, which arithmetic at full width slows down by more than it gains itself
/// (libFLAC's decode by 4 to 7 % when its blocks were converted with it).
Level preferredLevel() noexcept {
  Level best = Level::scalar;
  for (std::size_t i = 0; i < gLevels.count; ++i) {
    if (gLevels.items[i] <= Level::avx2) best = gLevels.items[i];
  }
  return best;
}

// Constant-initialised to the reference and raised during static initialisation: a caller that
// comes earlier is served all the same, and no call ever waits for an initialisation guard.
std::atomic<const Kernels*> gActive{&detail::kScalarKernels};
[[maybe_unused]] const bool gRaised = (setLevel(preferredLevel()), true);

}  // namespace

std::span<const Level> availableLevels() noexcept {
  return {gLevels.items.data(), gLevels.count};
}

const Kernels& kernels(Level level) noexcept {
  switch (level) {
#if defined(__x86_64__)
    case Level::avx512:
      return detail::kAvx512Kernels;
    case Level::avx2:
      return detail::kAvx2Kernels;
    case Level::sse2:
      return detail::kSse2Kernels;
#endif
    default:
      return detail::kScalarKernels;
  }
}

const Kernels& activeKernels() noexcept {
  return *gActive.load(std::memory_order_relaxed);
}

void setLevel(Level level) noexcept {
  gActive.store(&kernels(level), std::memory_order_relaxed);
}

void fill(float value, float* out, std::size_t count) noexcept {
  activeKernels().fill(value, out, count);
}

void multiplyByScalar(const float* in, float factor, float* out, std::size_t count) noexcept {
  activeKernels().multiplyByScalar(in, factor, out, count);
}

void multiplyAdd(const float* in, float factor, float* accumulator, std::size_t count) noexcept {
  activeKernels().multiplyAdd(in, factor, accumulator, count);
}

void add(const float* a, const float* b, float* out, std::size_t count) noexcept {
  activeKernels().add(a, b, out, count);
}

void subtract(const float* a, const float* b, float* out, std::size_t count) noexcept {
  activeKernels().subtract(a, b, out, count);
}

void multiply(const float* a, const float* b, float* out, std::size_t count) noexcept {
  activeKernels().multiply(a, b, out, count);
}

void weightedSum(const float* a, float gainA, const float* b, float gainB, float* out,
                 std::size_t count) noexcept {
  activeKernels().weightedSum(a, gainA, b, gainB, out, count);
}

void negate(const float* in, float* out, std::size_t count) noexcept {
  activeKernels().negate(in, out, count);
}

void absolute(const float* in, float* out, std::size_t count) noexcept {
  activeKernels().absolute(in, out, count);
}

void square(const float* in, float* out, std::size_t count) noexcept {
  activeKernels().square(in, out, count);
}

void squareRoot(const float* in, float* out, std::size_t count) noexcept {
  activeKernels().squareRoot(in, out, count);
}

void roundToNearest(const float* in, float* out, std::size_t count) noexcept {
  activeKernels().roundToNearest(in, out, count);
}

void tanh(const float* in, float* out, std::size_t count) noexcept {
  activeKernels().tanh(in, out, count);
}

void swap(float* a, float* b, std::size_t count) noexcept {
  activeKernels().swap(a, b, count);
}

void clip(const float* in, float low, float high, float* out, std::size_t count) noexcept {
  activeKernels().clip(in, low, high, out, count);
}

float maxMagnitude(const float* in, std::size_t count) noexcept {
  return activeKernels().maxMagnitude(in, count);
}

void int16ToFloat(const std::int16_t* in, float factor, float* out, std::size_t count) noexcept {
  activeKernels().int16ToFloat(in, factor, out, count);
}

void int24ToFloat(const std::byte* in, float factor, float* out, std::size_t count) noexcept {
  activeKernels().int24ToFloat(in, factor, out, count);
}

void int32ToFloat(const std::int32_t* in, float factor, float* out, std::size_t count) noexcept {
  activeKernels().int32ToFloat(in, factor, out, count);
}

void floatToDouble(const float* in, double* out, std::size_t count) noexcept {
  activeKernels().floatToDouble(in, out, count);
}

void doubleToFloat(const double* in, float* out, std::size_t count) noexcept {
  activeKernels().doubleToFloat(in, out, count);
}

void doubleToInt32(const double* in, std::int32_t* out, std::size_t count) noexcept {
  activeKernels().doubleToInt32(in, out, count);
}

void doubleToInt16(const double* in, std::int16_t* out, std::size_t count) noexcept {
  activeKernels().doubleToInt16(in, out, count);
}

void floatToInt32(const float* in, unsigned bits, std::int32_t* out, std::size_t count) noexcept {
  activeKernels().floatToInt32(in, bits, out, count);
}

void clipInt32(const std::int32_t* in, std::int32_t low, std::int32_t high, std::int32_t* out,
               std::size_t count) noexcept {
  activeKernels().clipInt32(in, low, high, out, count);
}

void shiftLeftInt32(const std::int32_t* in, unsigned bits, std::int32_t* out,
                    std::size_t count) noexcept {
  activeKernels().shiftLeftInt32(in, bits, out, count);
}

void shiftRightInt32(const std::int32_t* in, unsigned bits, std::int32_t* out,
                     std::size_t count) noexcept {
  activeKernels().shiftRightInt32(in, bits, out, count);
}

void shiftLeftToInt16(const std::int32_t* in, unsigned bits, std::int16_t* out,
                      std::size_t count) noexcept {
  activeKernels().shiftLeftToInt16(in, bits, out, count);
}

void int16ToInt32(const std::int16_t* in, unsigned bits, std::int32_t* out,
                  std::size_t count) noexcept {
  activeKernels().int16ToInt32(in, bits, out, count);
}

}  // namespace velorin::vector
