#include "dsp/effects/StereoWidenerDSP.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "dsp/effects/Level.h"

namespace velorin {
namespace {

constexpr double kCrossoverHz = 300;
constexpr double kHaasSeconds = 0.0008;

std::unique_ptr<BiquadCascade> crossover(double sampleRate) {
  std::vector<BiquadCoefficients> sections;
  if (biquad::isUsable(sampleRate, kCrossoverHz)) {
    sections.push_back(biquad::lowPass(sampleRate, kCrossoverHz, std::numbers::sqrt2));
  }
  return std::make_unique<BiquadCascade>(sections, 2);
}

}  // namespace

StereoWidenerDSP::StereoWidenerDSP() : DSPEffect(DSPEffectType::stereoWidener) {
  sampleRateChanged(44100);
}

void StereoWidenerDSP::setEnabled(bool enabled) noexcept {
  // On both ends: a block that runs while it is switched off may still take something up.
  if (!enabled || !isEnabled()) _needsReset.store(true, std::memory_order_relaxed);
  DSPEffect::setEnabled(enabled);
}

void StereoWidenerDSP::setAlgorithm(Algorithm algorithm) {
  _algorithm.store(algorithm, std::memory_order_relaxed);
  _crossover.redesign(crossover);
}

void StereoWidenerDSP::sampleRateChanged(double sampleRate) {
  _crossover.designFor(sampleRate, crossover);
}

void StereoWidenerDSP::process(AudioBufferList& buffers, std::int64_t frameCount,
                               double sampleRate) noexcept {
  const StereoPair pair(buffers);
  if (frameCount < 1 || !pair.isComplete()) return;
  if (_needsReset.load(std::memory_order_relaxed)) {
    const auto lowPass = _crossover.useAtAnyRate();
    if (!lowPass) return;
    _needsReset.store(false, std::memory_order_relaxed);
    _haasDelay.reset();
    lowPass->reset();
  }
  const float w = width();
  if (w == 1) return;
  // Exactly the rate: half a hertz already moves the delay.
  const auto lowPass = _crossover.use(sampleRate, 0);
  if (!lowPass) return;

  const auto n = static_cast<std::size_t>(frameCount);
  const Algorithm which = algorithm();
  if (which == Algorithm::haas) {
    haas(w > 1 ? pair.right : pair.left, n, w, sampleRate);
    return;
  }
  if (n > kMaxFrames) return;
  const Gains gains{(1 + w) * 0.5f, (1 - w) * 0.5f};
  for (std::size_t from = 0; from < n; from += kPiece) {
    const std::size_t count = std::min(kPiece, n - from);
    float* const left = pair.left + from;
    float* const right = pair.right + from;
    if (which == Algorithm::midSide) {
      midSide(left, right, count, gains);
    } else if (lowPass->sections() > 0) {
      frequencyDependent(*lowPass, left, right, count, gains);
    }
  }
}

void StereoWidenerDSP::midSide(float* left, float* right, std::size_t count, Gains gains) noexcept {
  vector::weightedSum(left, gains.own, right, gains.other, _tempL.data(), count);
  vector::weightedSum(right, gains.own, left, gains.other, right, count);
  std::copy_n(_tempL.data(), count, left);
}

void StereoWidenerDSP::haas(float* delayed, std::size_t n, float width,
                            double sampleRate) noexcept {
  const float samples = std::fabs(width - 1) * static_cast<float>(sampleRate * kHaasSeconds);
  const auto whole = static_cast<std::size_t>(samples);
  // A delay that is longer than the ring, above 320 kHz, wraps within it.
  const FractionalDelay delay{whole % kHaasSize, (whole + 1) % kHaasSize,
                              samples - static_cast<float>(whole)};
  for (std::size_t from = 0; from < n; from += kPiece) {
    const std::size_t count = std::min(kPiece, n - from);
    delay.read(_haasDelay.append(delayed + from, count), delayed + from, count);
  }
}

void StereoWidenerDSP::frequencyDependent(BiquadCascade& lowPass, float* left, float* right,
                                          std::size_t count, Gains gains) noexcept {
  float* const lowL = _tempL.data();
  float* const lowR = _tempR.data();
  std::copy_n(left, count, lowL);
  std::copy_n(right, count, lowR);
  float* const lows[] = {lowL, lowR};
  lowPass.process(lows, count);
  // From here on left and right are the highs.
  vector::subtract(left, lowL, left, count);
  vector::subtract(right, lowR, right, count);
  vector::multiplyAdd(left, gains.own, lowL, count);
  vector::multiplyAdd(right, gains.other, lowL, count);
  vector::multiplyAdd(right, gains.own, lowR, count);
  vector::multiplyAdd(left, gains.other, lowR, count);
  std::copy_n(lowL, count, left);
  std::copy_n(lowR, count, right);
}

std::vector<EffectParameter> StereoWidenerDSP::parameters() {
  return {
      {.name = "width",
       .minimum = 0,
       .maximum = 2,
       .defaultValue = 1,
       .get = [this] { return width(); },
       .set = [this](double value) { setWidth(value); }},
      {.name = "algorithm",
       .minimum = 0,
       .maximum = 2,
       .defaultValue = 0,
       .choices = {"midSide", "haas", "frequencyDependent"},
       .get = [this] { return static_cast<double>(algorithm()); },
       .set =
           [this](double value) { setAlgorithm(choiceOf(value, Algorithm::frequencyDependent)); }}};
}

}  // namespace velorin
