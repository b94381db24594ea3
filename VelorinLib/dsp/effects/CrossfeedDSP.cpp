#include "dsp/effects/CrossfeedDSP.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "dsp/effects/Level.h"

namespace velorin {
namespace {

constexpr std::size_t kMask = 4095;
// Below this a fraction of a sample is none.
constexpr float kWholeSample = 0.000001f;

}  // namespace

CrossfeedDSP::CrossfeedDSP() : DSPEffect(DSPEffectType::crossfeed) {
  setCrossfeedLevel(_crossfeedLevel);
  redesign();
}

void CrossfeedDSP::setEnabled(bool enabled) noexcept {
  // So that switching it on again does not play what it heard before.
  if (!enabled) _needsReset.store(true, std::memory_order_relaxed);
  DSPEffect::setEnabled(enabled);
}

void CrossfeedDSP::setCutoffFrequency(double hertz) {
  _cutoffFrequency = hertz;
  redesign();
}

void CrossfeedDSP::setCrossfeedLevel(double level) noexcept {
  _crossfeedLevel = level;
  _crossfeedGain.store(static_cast<float>(level), std::memory_order_relaxed);
  _outputTrim.store(static_cast<float>(1 / (1 + level)), std::memory_order_relaxed);
}

void CrossfeedDSP::setDelayTime(double seconds) {
  _delayTime = seconds;
  redesign();
}

void CrossfeedDSP::formatChanged(double sampleRate) {
  if (!(sampleRate > 0) || std::fabs(sampleRate - _currentSampleRate) <= 1.0) return;
  _currentSampleRate = sampleRate;
  redesign();
  _needsReset.store(true, std::memory_order_relaxed);
}

void CrossfeedDSP::redesign() {
  const double rate = _currentSampleRate;
  BiquadCoefficients lowPass;
  // Q = 0.5: two first-order poles, -6 dB at the corner.
  if (biquad::isUsable(rate, _cutoffFrequency))
    lowPass = biquad::lowPass(rate, _cutoffFrequency, 0.5);
  const double samples = std::max(_delayTime * rate, 0.0);
  const bool fits = samples < static_cast<double>(kDelaySize);
  const std::size_t whole = fits ? static_cast<std::size_t>(samples) : kDelaySize - 1;
  const float fraction = fits ? static_cast<float>(samples - static_cast<double>(whole)) : 0;
  _design.install(std::make_unique<Design>(lowPass, whole, fraction), rate,
                  [](Design& next, Design& old) { next.filter.takeState(old.filter); });
}

void CrossfeedDSP::reset(Design& design) noexcept {
  _delayBufferL.fill(0);
  _delayBufferR.fill(0);
  _delayWriteIndex = 0;
  design.filter.reset();
}

/// Linear interpolation towards the older sample. Reading comes before writing.
void CrossfeedDSP::delay(const Design& design, const float* in, Ring& ring, float* out,
                         std::size_t count) const noexcept {
  const float f = design.delayFraction;
  std::size_t w = _delayWriteIndex;
  std::size_t r = (w - design.delayReadOffset) & kMask;
  if (f < kWholeSample) {
    for (std::size_t i = 0; i < count; ++i) {
      out[i] = ring[r];
      ring[w] = in[i];
      w = (w + 1) & kMask;
      r = (r + 1) & kMask;
    }
    return;
  }
  for (std::size_t i = 0; i < count; ++i) {
    out[i] = (1 - f) * ring[r] + f * ring[(r - 1) & kMask];
    ring[w] = in[i];
    w = (w + 1) & kMask;
    r = (r + 1) & kMask;
  }
}

void CrossfeedDSP::process(AudioBufferList& buffers, std::int64_t frameCount,
                           double /*sampleRate*/) noexcept {
  if (!isEnabled() || frameCount < 1 || frameCount > kMaxFrames) return;
  const StereoPair pair(buffers);
  if (!pair.isComplete()) return;
  const auto design = _design.tryUse();
  if (!design) return;
  if (_needsReset.exchange(false, std::memory_order_relaxed)) reset(*design);

  const float trim = _outputTrim.load(std::memory_order_relaxed);
  const float cross = trim * _crossfeedGain.load(std::memory_order_relaxed);
  const auto n = static_cast<std::size_t>(frameCount);
  for (std::size_t from = 0; from < n; from += kPiece) {
    const std::size_t count = std::min(kPiece, n - from);
    float* left = pair.left + from;
    float* right = pair.right + from;
    delay(*design, left, _delayBufferL, _workBufferL.data(), count);
    delay(*design, right, _delayBufferR, _workBufferR.data(), count);
    _delayWriteIndex = (_delayWriteIndex + count) & kMask;
    float* work[] = {_workBufferL.data(), _workBufferR.data()};
    design->filter.process(work, count);
    vector::weightedSum(left, trim, _workBufferR.data(), cross, left, count);
    vector::weightedSum(right, trim, _workBufferL.data(), cross, right, count);
  }
}

std::vector<EffectParameter> CrossfeedDSP::parameters() {
  return {{.name = "cutoffFrequency",
           .minimum = 300,
           .maximum = 1200,
           .defaultValue = 700,
           .unit = "Hz",
           .get = [this] { return cutoffFrequency(); },
           .set = [this](double value) { setCutoffFrequency(value); }},
          {.name = "crossfeedLevel",
           .minimum = 0,
           .maximum = 1,
           .defaultValue = 0.595,
           .get = [this] { return crossfeedLevel(); },
           .set = [this](double value) { setCrossfeedLevel(value); }},
          {.name = "delayTime",
           .minimum = 0.0001,
           .maximum = 0.0005,
           .defaultValue = 0.00027,
           .unit = "s",
           .get = [this] { return delayTime(); },
           .set = [this](double value) { setDelayTime(value); }}};
}

}  // namespace velorin
