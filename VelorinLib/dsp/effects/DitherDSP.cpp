#include "dsp/effects/DitherDSP.h"

#include <algorithm>
#include <cmath>
#include <span>

#include "platform/vector/Vector.h"

namespace velorin {
namespace {

// The noise transfer function is 1 - c[0] z^-1 - c[1] z^-2 - …
constexpr float kModifiedEWeighted[] = {1.623f, -0.982f, 0.411f, -0.239f};
constexpr float kLipshitz[] = {2.033f, -2.165f, 1.959f, -1.590f, 0.6149f};
constexpr float kFWeighted[] = {2.412f,  -3.370f, 3.937f,  -4.174f, 3.353f,
                                -2.205f, 1.281f,  -0.569f, 0.0847f};

std::span<const float> coefficientsOf(DitherDSP::Algorithm algorithm) {
  switch (algorithm) {
    case DitherDSP::Algorithm::modifiedEWeighted:
      return kModifiedEWeighted;
    case DitherDSP::Algorithm::lipshitz:
      return kLipshitz;
    case DitherDSP::Algorithm::fWeighted:
      return kFWeighted;
    case DitherDSP::Algorithm::tpdf:
      break;
  }
  return {};
}

// An error of so many steps can only come from input that is no audio; fed back it would stay.
constexpr float kLargestError = 65536;

/// To the nearest whole number, ties away from zero. The sum is exact in double.
float roundAway(float value) noexcept {
  const double x = value;
  return static_cast<float>(std::trunc(x + std::copysign(0.5, x)));
}

}  // namespace

void DitherDSP::setTargetBitDepth(int bits) noexcept {
  _targetBitDepth.store(std::clamp(bits, 2, 32), std::memory_order_relaxed);
}

void DitherDSP::setAlgorithm(Algorithm algorithm) noexcept {
  _algorithm.store(algorithm, std::memory_order_relaxed);
  const auto coefficients = coefficientsOf(algorithm);
  for (std::size_t i = 0; i < coefficients.size(); ++i) {
    _activeCoeffs[i].store(coefficients[i], std::memory_order_relaxed);
  }
  _tapCount.store(static_cast<int>(coefficients.size()), std::memory_order_release);
}

/// The sum of two draws of -0.5 to 0.5: triangular, in steps of the target's least bit.
float DitherDSP::drawDither() noexcept {
  const auto draw = [this] {
    _rngState = _rngState * 1664525U + 1013904223U;
    return static_cast<float>(static_cast<std::int32_t>(_rngState)) * 0x1p-32f;
  };
  const float first = draw();
  return first + draw();
}

void DitherDSP::process(AudioBufferList& buffers, std::int64_t frameCount,
                        double /*sampleRate*/) noexcept {
  if (frameCount < 1) return;
  const auto n = static_cast<std::size_t>(std::min(frameCount, kMaxFrames));
  const float scale = std::ldexp(1.0f, targetBitDepth() - 1);
  const int taps = _tapCount.load(std::memory_order_acquire);
  if (taps > 0 && buffers.bufferCount > kMaxChannels) return;
  for (std::uint32_t i = 0; i < buffers.bufferCount; ++i) {
    auto* data = buffers.channel<float>(i);
    if (data == nullptr) continue;
    if (taps == 0) {
      processPlain(data, n, scale);
    } else {
      processShaped(i, taps, data, n, scale);
    }
  }
}

void DitherDSP::processPlain(float* data, std::size_t n, float scale) noexcept {
  for (std::size_t from = 0; from < n; from += kPiece) {
    const std::size_t count = std::min(kPiece, n - from);
    float* piece = data + from;
    for (std::size_t i = 0; i < count; ++i) _ditherBuf[i] = drawDither();
    vector::multiplyByScalar(piece, scale, piece, count);
    vector::add(piece, _ditherBuf.data(), piece, count);
    vector::roundToNearest(piece, piece, count);
    vector::multiplyByScalar(piece, 1 / scale, piece, count);
  }
}

void DitherDSP::processShaped(std::uint32_t channel, int taps, float* data, std::size_t n,
                              float scale) noexcept {
  std::array<float, kMaxTaps> coefficients;
  for (std::size_t k = 0; k < kMaxTaps; ++k) {
    coefficients[k] = _activeCoeffs[k].load(std::memory_order_relaxed);
  }
  const float inverse = 1 / scale;
  auto& ring = _errorRing[channel];
  std::size_t pos = _historyPos[channel];
  for (std::size_t i = 0; i < n; ++i) {
    const float dither = drawDither();
    float fedBack = 0;
    for (std::size_t k = 0; k < static_cast<std::size_t>(taps); ++k) {
      fedBack += coefficients[k] * ring[(pos + k) & kHistoryMask];
    }
    pos = (pos - 1) & kHistoryMask;
    // Dither and rounding are both in the error, so that both are shaped.
    const float wanted = data[i] * scale - fedBack;
    const float quantised = roundAway(wanted + dither);
    const float error = quantised - wanted;
    ring[pos] = std::fabs(error) < kLargestError ? error : 0;
    data[i] = quantised * inverse;
  }
  _historyPos[channel] = pos;
}

std::vector<EffectParameter> DitherDSP::parameters() {
  return {
      {.name = "targetBitDepth",
       .minimum = 16,
       .maximum = 24,
       .defaultValue = 16,
       .unit = "bit",
       .get = [this] { return targetBitDepth(); },
       .set = [this](double value) { setTargetBitDepth(static_cast<int>(std::lround(value))); }},
      {.name = "algorithm",
       .minimum = 0,
       .maximum = 3,
       .defaultValue = 0,
       .choices = {"tpdf", "modifiedEWeighted", "lipshitz", "fWeighted"},
       .get = [this] { return static_cast<double>(algorithm()); },
       .set =
           [this](double value) {
             setAlgorithm(static_cast<Algorithm>(std::clamp(std::lround(value), 0L, 3L)));
           }}};
}

}  // namespace velorin
