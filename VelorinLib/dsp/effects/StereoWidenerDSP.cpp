#include "dsp/effects/StereoWidenerDSP.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "dsp/effects/Level.h"

namespace velorin {
namespace {

constexpr double kCrossoverHz = 300;
constexpr double kHaasSeconds = 0.0008;

}  // namespace

StereoWidenerDSP::StereoWidenerDSP() : DSPEffect(DSPEffectType::stereoWidener) {
  sampleRateChanged(_lastSampleRate);
}

void StereoWidenerDSP::setEnabled(bool enabled) noexcept {
  if (!enabled) _needsReset.store(true, std::memory_order_relaxed);
  DSPEffect::setEnabled(enabled);
}

void StereoWidenerDSP::setAlgorithm(Algorithm algorithm) {
  {
    const RenderLockHold hold(_lock);
    _algorithm.store(algorithm, std::memory_order_relaxed);
  }
  sampleRateChanged(_lastSampleRate);
}

void StereoWidenerDSP::sampleRateChanged(double sampleRate) {
  if (!(sampleRate > 0)) return;
  std::unique_ptr<BiquadCascade> setup;
  if (biquad::isUsable(sampleRate, kCrossoverHz)) {
    const auto lowPass = biquad::lowPass(sampleRate, kCrossoverHz, std::numbers::sqrt2);
    setup = std::make_unique<BiquadCascade>(std::span(&lowPass, 1), 2);
  }
  // The old filter, which `setup` takes, is destroyed after the lock.
  const RenderLockHold hold(_lock);
  _lpBiquadSetup.swap(setup);
  _lastSampleRate.store(sampleRate, std::memory_order_relaxed);
  _needsRebuild.store(false, std::memory_order_relaxed);
}

void StereoWidenerDSP::reset() noexcept {
  _haasWriteIndex = 0;
  _haasDelayBuffer.fill(0);
  if (_lpBiquadSetup) _lpBiquadSetup->reset();
}

void StereoWidenerDSP::process(AudioBufferList& buffers, std::int64_t frameCount,
                               double sampleRate) noexcept {
  const StereoPair pair(buffers);
  if (frameCount < 1 || !pair.isComplete()) return;
  const float w = width();
  const bool resets = _needsReset.load(std::memory_order_relaxed);
  if (w == 1.0f && !resets) return;
  if (!_lock.tryLock()) return;
  if (resets) {
    _needsReset.store(false, std::memory_order_relaxed);
    reset();
  }
  // Exactly the rate: half a hertz already moves the delay.
  if (sampleRate != _lastSampleRate.load(std::memory_order_relaxed)) _needsRebuild.store(true);
  if (w != 1.0f && !_needsRebuild.load(std::memory_order_relaxed)) {
    const auto n = static_cast<std::size_t>(frameCount);
    switch (algorithm()) {
      case Algorithm::midSide:
        midSide(pair.left, pair.right, n, w);
        break;
      case Algorithm::haas:
        haas(w > 1 ? pair.right : pair.left, n, w, sampleRate);
        break;
      case Algorithm::frequencyDependent:
        frequencyDependent(pair.left, pair.right, n, w);
        break;
    }
  }
  _lock.unlock();
}

void StereoWidenerDSP::midSide(float* left, float* right, std::size_t n, float w) noexcept {
  if (n > kMaxFrames) return;
  const float m = (1 + w) * 0.5f;
  const float s = (1 - w) * 0.5f;
  vector::weightedSum(left, m, right, s, _tempL.data(), n);
  vector::weightedSum(right, m, left, s, _tempR.data(), n);
  std::copy_n(_tempL.data(), n, left);
  std::copy_n(_tempR.data(), n, right);
}

void StereoWidenerDSP::haas(float* delayed, std::size_t n, float w, double sampleRate) noexcept {
  const float d = std::fabs(w - 1) * static_cast<float>(sampleRate * kHaasSeconds);
  const auto whole = static_cast<std::size_t>(d);
  const float f = d - static_cast<float>(whole);
  constexpr std::size_t kMask = kHaasSize - 1;
  std::size_t at = _haasWriteIndex;
  for (std::size_t i = 0; i < n; ++i) {
    _haasDelayBuffer[at] = delayed[i];
    // Where the delay is longer than the ring the position wraps within it.
    const std::size_t r = (at - whole) & kMask;
    delayed[i] = (1 - f) * _haasDelayBuffer[r] + f * _haasDelayBuffer[(r - 1) & kMask];
    at = (at + 1) & kMask;
  }
  _haasWriteIndex = at;
}

void StereoWidenerDSP::frequencyDependent(float* left, float* right, std::size_t n,
                                          float w) noexcept {
  if (n > kMaxFrames || !_lpBiquadSetup) return;
  float* lowL = _tempL.data();
  float* lowR = _tempR.data();
  _lpBiquadSetup->processChannel(0, left, lowL, n);
  _lpBiquadSetup->processChannel(1, right, lowR, n);
  vector::subtract(left, lowL, left, n);
  vector::subtract(right, lowR, right, n);
  const float m = (1 + w) * 0.5f;
  const float s = (1 - w) * 0.5f;
  vector::multiplyAdd(left, m, lowL, n);
  vector::multiplyAdd(right, s, lowL, n);
  vector::multiplyAdd(right, m, lowR, n);
  vector::multiplyAdd(left, s, lowR, n);
  std::copy_n(lowL, n, left);
  std::copy_n(lowR, n, right);
}

std::vector<EffectParameter> StereoWidenerDSP::parameters() {
  return {{.name = "width",
           .minimum = 0,
           .maximum = 2,
           .defaultValue = 1,
           .get = [this] { return width(); },
           .set = [this](double value) { setWidth(static_cast<float>(value)); }},
          {.name = "algorithm",
           .minimum = 0,
           .maximum = 2,
           .defaultValue = 0,
           .choices = {"midSide", "haas", "frequencyDependent"},
           .get = [this] { return static_cast<double>(algorithm()); },
           .set =
               [this](double value) {
                 setAlgorithm(static_cast<Algorithm>(std::clamp(std::lround(value), 0L, 2L)));
               }}};
}

}  // namespace velorin
