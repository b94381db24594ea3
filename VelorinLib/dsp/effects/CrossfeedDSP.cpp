#include "dsp/effects/CrossfeedDSP.h"

#include <algorithm>
#include <cmath>

#include "dsp/effects/Level.h"

namespace velorin {
namespace {

// Below this a fraction of a sample is none.
constexpr float kWholeSample = 0.000001f;

}  // namespace

CrossfeedDSP::CrossfeedDSP() : DSPEffect(DSPEffectType::crossfeed) {
  setCrossfeedLevel(crossfeedLevel());
  _design.designFor(44100, [this](double rate) { return design(rate); });
}

void CrossfeedDSP::setEnabled(bool enabled) noexcept {
  // What it heard before must not play again. Asked for on both ends: a block that runs while it
  // is switched off may still take something up.
  if (!enabled || !isEnabled()) _needsReset.store(true, std::memory_order_relaxed);
  DSPEffect::setEnabled(enabled);
}

void CrossfeedDSP::setCutoffFrequency(double hertz) {
  _cutoffFrequency.set(hertz);
  redesign();
}

void CrossfeedDSP::setCrossfeedLevel(double level) noexcept {
  _crossfeedLevel.set(level);
  const double held = crossfeedLevel();
  _crossfeedGain.store(static_cast<float>(held), std::memory_order_relaxed);
  _outputTrim.store(static_cast<float>(1 / (1 + held)), std::memory_order_relaxed);
}

void CrossfeedDSP::setDelayTime(double seconds) {
  _delayTime.set(seconds);
  redesign();
}

void CrossfeedDSP::formatChanged(double sampleRate) {
  if (std::fabs(sampleRate - _design.rate()) <= 1.0) return;
  _design.designFor(sampleRate, [this](double rate) { return design(rate); });
  _needsReset.store(true, std::memory_order_relaxed);
}

void CrossfeedDSP::redesign() {
  _design.redesign([this](double rate) { return design(rate); },
                   [](Design& next, Design& old) { next.filter.takeState(old.filter); });
}

std::unique_ptr<CrossfeedDSP::Design> CrossfeedDSP::design(double sampleRate) const {
  std::vector<BiquadCoefficients> sections;
  if (biquad::isUsable(sampleRate, cutoffFrequency())) {
    // Q = 0.5: two first-order poles, -6 dB at the corner.
    sections.push_back(biquad::lowPass(sampleRate, cutoffFrequency(), 0.5));
  }
  const double samples = std::min(delayTime() * sampleRate, static_cast<double>(kLongestDelay + 1));
  const auto whole = static_cast<std::size_t>(samples);
  FractionalDelay delay{kLongestDelay, kLongestDelay + 1, 0};
  if (whole <= kLongestDelay) {
    const auto fraction = static_cast<float>(samples - static_cast<double>(whole));
    delay = {whole, whole + 1, fraction < kWholeSample ? 0 : fraction};
  }
  return std::make_unique<Design>(sections, delay);
}

void CrossfeedDSP::process(AudioBufferList& buffers, std::int64_t frameCount,
                           double /*sampleRate*/) noexcept {
  if (!isEnabled() || frameCount < 1 || frameCount > kMaxFrames) return;
  const StereoPair pair(buffers);
  if (!pair.isComplete()) return;
  const auto design = _design.useAtAnyRate();
  if (!design) return;
  if (_needsReset.load(std::memory_order_relaxed)) {
    _needsReset.store(false, std::memory_order_relaxed);
    _delayL.reset();
    _delayR.reset();
    design->filter.reset();
  }

  const float trim = _outputTrim.load(std::memory_order_relaxed);
  const float cross = trim * _crossfeedGain.load(std::memory_order_relaxed);
  const auto n = static_cast<std::size_t>(frameCount);
  for (std::size_t from = 0; from < n; from += kPiece) {
    const std::size_t count = std::min(kPiece, n - from);
    float* const left = pair.left + from;
    float* const right = pair.right + from;
    float* const crossed[] = {_workBufferL.data(), _workBufferR.data()};
    design->delay.read(_delayL.append(left, count), crossed[0], count);
    design->delay.read(_delayR.append(right, count), crossed[1], count);
    design->filter.process(crossed, count);
    if (cross == 0 && trim == 1) continue;
    vector::weightedSum(left, trim, crossed[1], cross, left, count);
    vector::weightedSum(right, trim, crossed[0], cross, right, count);
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
