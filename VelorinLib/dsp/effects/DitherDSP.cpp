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

/// To the nearest whole number, ties away from zero.
float roundAway(float value) noexcept {
  constexpr double kShift = 0x1.8p52;  // beside it a double has no room for a fraction
  const double x = value;
  if (!(std::fabs(x) < 0x1p51)) return value;  // whole, infinite or no number
  double nearest = (x + kShift) - kShift;
  if (std::fabs(x - nearest) == 0.5) [[unlikely]]
    nearest = x + std::copysign(0.5, x);
  return static_cast<float>(nearest);
}

/// The sum of two draws of -0.5 to 0.5: triangular, in steps of the target's least bit.
float drawDither(NoiseGenerator& noise) noexcept {
  const float first = noise.drawSigned();
  return first + noise.drawSigned();
}
constexpr std::uint64_t kDrawsPerSample = 2;

}  // namespace

void DitherDSP::setAlgorithm(Algorithm algorithm) noexcept {
  _algorithm.store(algorithm, std::memory_order_relaxed);
  const auto coefficients = coefficientsOf(algorithm);
  for (std::size_t i = 0; i < coefficients.size(); ++i) {
    _activeCoeffs[i].store(coefficients[i], std::memory_order_relaxed);
  }
  _tapCount.store(coefficients.size(), std::memory_order_release);
}

void DitherDSP::process(AudioBufferList& buffers, std::int64_t frameCount,
                        double /*sampleRate*/) noexcept {
  if (frameCount < 1) return;
  const auto n = static_cast<std::size_t>(std::min(frameCount, kMaxFrames));
  const float scale = std::ldexp(1.0f, targetBitDepth() - 1);
  const std::size_t taps = _tapCount.load(std::memory_order_acquire);
  if (taps > 0) {
    processShaped(buffers, taps, n, scale);
    return;
  }
  for (std::uint32_t i = 0; i < buffers.bufferCount; ++i) {
    auto* data = buffers.channel<float>(i);
    if (data != nullptr) processPlain(data, n, scale);
  }
}

void DitherDSP::processPlain(float* data, std::size_t n, float scale) noexcept {
  for (std::size_t from = 0; from < n; from += kPiece) {
    const std::size_t count = std::min(kPiece, n - from);
    float* const piece = data + from;
    for (std::size_t i = 0; i < count; ++i) _ditherBuf[i] = drawDither(_noise);
    vector::multiplyByScalar(piece, scale, piece, count);
    vector::add(piece, _ditherBuf.data(), piece, count);
    vector::roundToNearest(piece, piece, count);
    vector::multiplyByScalar(piece, 1 / scale, piece, count);
  }
}

/// Each sample waits for the error of the one before it: two channels side by side take the time of
/// one. Their draws are those of one channel after the other.
void DitherDSP::processShaped(AudioBufferList& buffers, std::size_t taps, std::size_t n,
                              float scale) noexcept {
  if (buffers.bufferCount > kMaxChannels) return;
  std::array<Lane, 2> pair{Lane{nullptr, nullptr, _noise}, Lane{nullptr, nullptr, _noise}};
  std::size_t waiting = 0;
  for (std::uint32_t i = 0; i < buffers.bufferCount; ++i) {
    auto* data = buffers.channel<float>(i);
    if (data == nullptr) continue;
    pair[waiting++] = {data, &_errors[i], _noise};
    _noise = _noise.ahead(kDrawsPerSample * n);
    if (waiting < pair.size()) continue;
    shape(pair, taps, n, scale);
    waiting = 0;
  }
  if (waiting == 0) return;
  std::array<Lane, 1> last{pair[0]};
  shape(last, taps, n, scale);
}

template <std::size_t kLanes>
void DitherDSP::shape(std::array<Lane, kLanes>& lanes, std::size_t taps, std::size_t n,
                      float scale) noexcept {
  std::array<float, kMaxTaps> coefficients;
  for (std::size_t k = 0; k < kMaxTaps; ++k) {
    coefficients[k] = _activeCoeffs[k].load(std::memory_order_relaxed);
  }
  const float inverse = 1 / scale;
  // Errors grow downwards from the history's place, so that the newest comes first.
  constexpr std::size_t kRun = 256;
  float errors[kLanes][kRun + kMaxTaps];
  for (std::size_t from = 0; from < n; from += kRun) {
    const std::size_t count = std::min(kRun, n - from);
    for (std::size_t l = 0; l < kLanes; ++l)
      std::ranges::copy(*lanes[l].history, errors[l] + count);
    for (std::size_t i = 0; i < count; ++i) {
      for (std::size_t l = 0; l < kLanes; ++l) {
        float* const newest = errors[l] + count - i;
        float fedBack = 0;
        for (std::size_t k = 0; k < taps; ++k) fedBack += coefficients[k] * newest[k];
        float& sample = lanes[l].data[from + i];
        // Dither and rounding are both in the error, so that both are shaped.
        const float wanted = sample * scale - fedBack;
        const float quantised = roundAway(wanted + drawDither(lanes[l].noise));
        const float error = quantised - wanted;
        newest[-1] = std::fabs(error) < kLargestError ? error : 0;
        sample = quantised * inverse;
      }
    }
    for (std::size_t l = 0; l < kLanes; ++l)
      std::copy_n(errors[l], kMaxTaps, lanes[l].history->begin());
  }
}

std::vector<EffectParameter> DitherDSP::parameters() {
  return {{.name = "targetBitDepth",
           .minimum = 16,
           .maximum = 24,
           .defaultValue = 16,
           .unit = "bit",
           .get = [this] { return targetBitDepth(); },
           .set = [this](double value) { setTargetBitDepth(value); }},
          {.name = "algorithm",
           .minimum = 0,
           .maximum = 3,
           .defaultValue = 0,
           .choices = {"tpdf", "modifiedEWeighted", "lipshitz", "fWeighted"},
           .get = [this] { return static_cast<double>(algorithm()); },
           .set = [this](double value) { setAlgorithm(choiceOf(value, Algorithm::fWeighted)); }}};
}

}  // namespace velorin
