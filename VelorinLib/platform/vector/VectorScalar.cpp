#include "platform/vector/VectorScalar.h"

#include <cmath>
#include <cstring>
#include <limits>
#include <span>
#include <utility>

#include "platform/vector/VectorKernels.h"

namespace velorin::vector::scalar {
namespace {

// Written as comparisons rather than std::clamp, so that a NaN and the two zeros come out as they
// do from the processor's min and max instructions.
template <class Real>
Real heldWithin(Real value, Real low, Real high) noexcept {
  value = value != value ? Real{0} : value;
  value = value > low ? value : low;
  return value < high ? value : high;
}

// Truncates toward zero; the bounds are exact in double.
template <class Integer>
Integer truncated(double value) noexcept {
  constexpr double kLow = std::numeric_limits<Integer>::min();
  constexpr double kHigh = std::numeric_limits<Integer>::max();
  return static_cast<Integer>(heldWithin(value, kLow, kHigh));
}

template <class Word>
void interleavePairs(const void* a, const void* b, std::byte* out, std::size_t count) noexcept {
  const auto* left = static_cast<const std::byte*>(a);
  const auto* right = static_cast<const std::byte*>(b);
  for (std::size_t i = 0; i < count; ++i) {
    std::memcpy(out + (2 * i) * sizeof(Word), left + i * sizeof(Word), sizeof(Word));
    std::memcpy(out + (2 * i + 1) * sizeof(Word), right + i * sizeof(Word), sizeof(Word));
  }
}

template <class Word>
void deinterleavePairs(const std::byte* in, void* a, void* b, std::size_t count) noexcept {
  auto* left = static_cast<std::byte*>(a);
  auto* right = static_cast<std::byte*>(b);
  for (std::size_t i = 0; i < count; ++i) {
    std::memcpy(left + i * sizeof(Word), in + (2 * i) * sizeof(Word), sizeof(Word));
    std::memcpy(right + i * sizeof(Word), in + (2 * i + 1) * sizeof(Word), sizeof(Word));
  }
}

// The constants are those of the SIMD kernels, the order of the operations, too.
float polynomial(std::span<const float> coefficients, float x) noexcept {
  float sum = coefficients[0];
  for (const float coefficient : coefficients.subspan(1)) sum = sum * x + coefficient;
  return sum;
}

// A polynomial near zero; elsewhere 1 - 2 / (exp(2|x|) + 1), with 2|x| = k ln 2 + r.
float tanhOf(float x) noexcept {
  namespace c = tanh_constants;
  const float size = std::fabs(x);
  if (!(size >= c::kNear)) {
    const float u = x * x;
    return x + x * u * polynomial(c::kTanh, u);
  }
  const float t = size + size < c::kLimit ? size + size : c::kLimit;
  const float k = std::nearbyint(t * c::kLog2OfE);
  const float r = (t - k * c::kLn2High) - k * c::kLn2Low;
  const float p = r + r * r * polynomial(c::kExp, r);
  const float power = std::ldexp(1.0f, static_cast<int>(k));
  const float exponential = power + power * p;
  return std::copysign(1.0f - 2.0f / (exponential + 1.0f), x);
}

}  // namespace

void fill(float value, float* out, std::size_t count) noexcept {
  for (std::size_t i = 0; i < count; ++i) out[i] = value;
}

void multiplyByScalar(const float* in, float factor, float* out, std::size_t count) noexcept {
  for (std::size_t i = 0; i < count; ++i) out[i] = in[i] * factor;
}

void multiplyAdd(const float* in, float factor, float* accumulator, std::size_t count) noexcept {
  for (std::size_t i = 0; i < count; ++i) accumulator[i] = accumulator[i] + in[i] * factor;
}

void add(const float* a, const float* b, float* out, std::size_t count) noexcept {
  for (std::size_t i = 0; i < count; ++i) out[i] = a[i] + b[i];
}

void subtract(const float* a, const float* b, float* out, std::size_t count) noexcept {
  for (std::size_t i = 0; i < count; ++i) out[i] = a[i] - b[i];
}

void multiply(const float* a, const float* b, float* out, std::size_t count) noexcept {
  for (std::size_t i = 0; i < count; ++i) out[i] = a[i] * b[i];
}

void weightedSum(const float* a, float gainA, const float* b, float gainB, float* out,
                 std::size_t count) noexcept {
  for (std::size_t i = 0; i < count; ++i) out[i] = a[i] * gainA + b[i] * gainB;
}

void negate(const float* in, float* out, std::size_t count) noexcept {
  for (std::size_t i = 0; i < count; ++i) out[i] = -in[i];
}

void absolute(const float* in, float* out, std::size_t count) noexcept {
  for (std::size_t i = 0; i < count; ++i) out[i] = std::fabs(in[i]);
}

void square(const float* in, float* out, std::size_t count) noexcept {
  for (std::size_t i = 0; i < count; ++i) out[i] = in[i] * in[i];
}

void squareRoot(const float* in, float* out, std::size_t count) noexcept {
  for (std::size_t i = 0; i < count; ++i) out[i] = std::sqrt(in[i]);
}

void roundToNearest(const float* in, float* out, std::size_t count) noexcept {
  for (std::size_t i = 0; i < count; ++i) out[i] = std::nearbyint(in[i]);
}

void tanh(const float* in, float* out, std::size_t count) noexcept {
  for (std::size_t i = 0; i < count; ++i) out[i] = tanhOf(in[i]);
}

void swap(float* a, float* b, std::size_t count) noexcept {
  for (std::size_t i = 0; i < count; ++i) std::swap(a[i], b[i]);
}

void clip(const float* in, float low, float high, float* out, std::size_t count) noexcept {
  for (std::size_t i = 0; i < count; ++i) out[i] = heldWithin(in[i], low, high);
}

float maxMagnitude(const float* in, std::size_t count) noexcept {
  float largest = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const float magnitude = std::fabs(in[i]);
    if (magnitude > largest) largest = magnitude;
  }
  return largest;
}

void int16ToFloat(const std::int16_t* in, float factor, float* out, std::size_t count) noexcept {
  for (std::size_t i = 0; i < count; ++i) out[i] = static_cast<float>(in[i]) * factor;
}

void int24ToFloat(const std::byte* in, float factor, float* out, std::size_t count) noexcept {
  for (std::size_t i = 0; i < count; ++i) {
    // Assembled at the top of the word, so that the shift down extends the sign.
    const auto word = std::to_integer<std::uint32_t>(in[3 * i]) << 8 |
                      std::to_integer<std::uint32_t>(in[3 * i + 1]) << 16 |
                      std::to_integer<std::uint32_t>(in[3 * i + 2]) << 24;
    out[i] = static_cast<float>(static_cast<std::int32_t>(word) >> 8) * factor;
  }
}

void int32ToFloat(const std::int32_t* in, float factor, float* out, std::size_t count) noexcept {
  for (std::size_t i = 0; i < count; ++i) out[i] = static_cast<float>(in[i]) * factor;
}

void floatToDouble(const float* in, double* out, std::size_t count) noexcept {
  for (std::size_t i = 0; i < count; ++i) out[i] = in[i];
}

void doubleToFloat(const double* in, float* out, std::size_t count) noexcept {
  for (std::size_t i = 0; i < count; ++i) out[i] = static_cast<float>(in[i]);
}

void doubleToInt32(const double* in, std::int32_t* out, std::size_t count) noexcept {
  for (std::size_t i = 0; i < count; ++i) out[i] = truncated<std::int32_t>(in[i] * 2147483647.0);
}

void doubleToInt16(const double* in, std::int16_t* out, std::size_t count) noexcept {
  for (std::size_t i = 0; i < count; ++i) out[i] = truncated<std::int16_t>(in[i] * 32767.0);
}

void floatToInt32(const float* in, unsigned bits, std::int32_t* out, std::size_t count) noexcept {
  // In double every product and both bounds are exact, so only the rounding below rounds.
  const double scale = std::ldexp(1.0, static_cast<int>(bits) - 1);
  for (std::size_t i = 0; i < count; ++i) {
    out[i] = static_cast<std::int32_t>(
        std::nearbyint(heldWithin<double>(in[i] * scale, -scale, scale - 1)));
  }
}

void clipInt32(const std::int32_t* in, std::int32_t low, std::int32_t high, std::int32_t* out,
               std::size_t count) noexcept {
  for (std::size_t i = 0; i < count; ++i) {
    const std::int32_t raised = in[i] < low ? low : in[i];
    out[i] = raised > high ? high : raised;
  }
}

void shiftLeftInt32(const std::int32_t* in, unsigned bits, std::int32_t* out,
                    std::size_t count) noexcept {
  for (std::size_t i = 0; i < count; ++i) {
    out[i] = static_cast<std::int32_t>(static_cast<std::uint32_t>(in[i]) << bits);
  }
}

void shiftRightInt32(const std::int32_t* in, unsigned bits, std::int32_t* out,
                     std::size_t count) noexcept {
  for (std::size_t i = 0; i < count; ++i) out[i] = in[i] >> bits;
}

void shiftLeftToInt16(const std::int32_t* in, unsigned bits, std::int16_t* out,
                      std::size_t count) noexcept {
  for (std::size_t i = 0; i < count; ++i) {
    const auto shifted = static_cast<std::int32_t>(static_cast<std::uint32_t>(in[i]) << bits);
    const std::int32_t raised = shifted < INT16_MIN ? INT16_MIN : shifted;
    out[i] = static_cast<std::int16_t>(raised > INT16_MAX ? INT16_MAX : raised);
  }
}

void int16ToInt32(const std::int16_t* in, unsigned bits, std::int32_t* out,
                  std::size_t count) noexcept {
  for (std::size_t i = 0; i < count; ++i) {
    out[i] = static_cast<std::int32_t>(static_cast<std::uint32_t>(std::int32_t{in[i]}) << bits);
  }
}

void interleavePairs16(const void* a, const void* b, std::byte* out, std::size_t count) noexcept {
  interleavePairs<std::uint16_t>(a, b, out, count);
}

void interleavePairs32(const void* a, const void* b, std::byte* out, std::size_t count) noexcept {
  interleavePairs<std::uint32_t>(a, b, out, count);
}

void deinterleavePairs16(const std::byte* in, void* a, void* b, std::size_t count) noexcept {
  deinterleavePairs<std::uint16_t>(in, a, b, count);
}

void deinterleavePairs32(const std::byte* in, void* a, void* b, std::size_t count) noexcept {
  deinterleavePairs<std::uint32_t>(in, a, b, count);
}

void packInt24(const std::int32_t* in, std::byte* out, std::size_t count) noexcept {
  for (std::size_t i = 0; i < count; ++i) {
    const auto word = static_cast<std::uint32_t>(in[i]);
    out[3 * i] = static_cast<std::byte>(word);
    out[3 * i + 1] = static_cast<std::byte>(word >> 8);
    out[3 * i + 2] = static_cast<std::byte>(word >> 16);
  }
}

}  // namespace velorin::vector::scalar

namespace velorin::vector::detail {

const Kernels kScalarKernels = {
    .fill = scalar::fill,
    .multiplyByScalar = scalar::multiplyByScalar,
    .multiplyAdd = scalar::multiplyAdd,
    .add = scalar::add,
    .subtract = scalar::subtract,
    .multiply = scalar::multiply,
    .weightedSum = scalar::weightedSum,
    .negate = scalar::negate,
    .absolute = scalar::absolute,
    .square = scalar::square,
    .squareRoot = scalar::squareRoot,
    .roundToNearest = scalar::roundToNearest,
    .tanh = scalar::tanh,
    .swap = scalar::swap,
    .clip = scalar::clip,
    .maxMagnitude = scalar::maxMagnitude,
    .int16ToFloat = scalar::int16ToFloat,
    .int24ToFloat = scalar::int24ToFloat,
    .int32ToFloat = scalar::int32ToFloat,
    .floatToDouble = scalar::floatToDouble,
    .doubleToFloat = scalar::doubleToFloat,
    .doubleToInt32 = scalar::doubleToInt32,
    .doubleToInt16 = scalar::doubleToInt16,
    .floatToInt32 = scalar::floatToInt32,
    .clipInt32 = scalar::clipInt32,
    .shiftLeftInt32 = scalar::shiftLeftInt32,
    .shiftRightInt32 = scalar::shiftRightInt32,
    .shiftLeftToInt16 = scalar::shiftLeftToInt16,
    .int16ToInt32 = scalar::int16ToInt32,
    .interleavePairs16 = scalar::interleavePairs16,
    .interleavePairs32 = scalar::interleavePairs32,
    .deinterleavePairs16 = scalar::deinterleavePairs16,
    .deinterleavePairs32 = scalar::deinterleavePairs32,
    .filterPairs = scalar::filterPairs,
    .brokenStreams = scalar::brokenStreams,
    .sumOneBitRows = scalar::sumOneBitRows,
    .halfBand = scalar::halfBand,
    .medianOf21 = scalar::medianOf21,
    .packInt24 = scalar::packInt24,
};

}  // namespace velorin::vector::detail
