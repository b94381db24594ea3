#include "dsp/effects/LoudnessCompensationDSP.h"

#include <algorithm>
#include <cmath>

namespace velorin {
namespace {

constexpr auto kRelaxed = std::memory_order_relaxed;
constexpr double kAlphaDivisor = 1.4;
constexpr double kBassCorner = 628.3185307179587;     // radians a second: 100 Hz
constexpr double kTrebleCorner = 62831.853071795864;  // 10 kHz
constexpr double kTrebleHz = 10000;

}  // namespace

float LoudnessCompensationDSP::boostFactor() const noexcept {
  const float reference = referenceLevel();
  return std::max(reference - volume(), 0.0f) / std::max(reference, 0.01f);
}

void LoudnessCompensationDSP::setVolume(float volume) {
  _volume.store(volume, kRelaxed);
  sampleRateChanged(_filter.rate());
}

void LoudnessCompensationDSP::setReferenceLevel(float level) {
  _referenceLevel.store(level, kRelaxed);
  sampleRateChanged(_filter.rate());
}

void LoudnessCompensationDSP::setMaxBassBoostDB(float dB) {
  _maxBassBoostDB.store(dB, kRelaxed);
  sampleRateChanged(_filter.rate());
}

void LoudnessCompensationDSP::setMaxTrebleBoostDB(float dB) {
  _maxTrebleBoostDB.store(dB, kRelaxed);
  sampleRateChanged(_filter.rate());
}

void LoudnessCompensationDSP::sampleRateChanged(double sampleRate) {
  if (!(sampleRate > 0)) return;
  const float factor = boostFactor();
  const float bassMax = maxBassBoostDB();
  const float trebleMax = maxTrebleBoostDB();
  const auto amplitude = [](float dB) { return std::pow(10.0, static_cast<double>(dB) / 40); };
  std::vector<BiquadCoefficients> sections;
  sections.push_back(
      biquad::lowShelfOf(kBassCorner / sampleRate, kAlphaDivisor, amplitude(bassMax * factor)));
  if (biquad::isUsable(sampleRate, kTrebleHz)) {
    sections.push_back(biquad::highShelfOf(kTrebleCorner / sampleRate, kAlphaDivisor,
                                           amplitude(trebleMax * factor)));
  }
  _appliedVolume.store(volume(), kRelaxed);
  _appliedBassBoost.store(bassMax, kRelaxed);
  _appliedTrebleBoost.store(trebleMax, kRelaxed);
  _filter.install(sections, sampleRate);
}

void LoudnessCompensationDSP::process(AudioBufferList& buffers, std::int64_t frameCount,
                                      double sampleRate) noexcept {
  if (!isEnabled() || frameCount < 1) return;
  const float now = volume();
  if (std::fabs(now - _appliedVolume.load(kRelaxed)) > 0.01f ||
      maxBassBoostDB() != _appliedBassBoost.load(kRelaxed) ||
      maxTrebleBoostDB() != _appliedTrebleBoost.load(kRelaxed)) {
    _filter.invalidate();
  }
  if (!_filter.fits(sampleRate)) return;
  if (referenceLevel() <= now) return;
  _filter.process(buffers, frameCount);
}

std::vector<EffectParameter> LoudnessCompensationDSP::parameters() {
  return {{.name = "referenceLevel",
           .minimum = 0.3,
           .maximum = 1,
           .defaultValue = 0.8,
           .get = [this] { return referenceLevel(); },
           .set = [this](double value) { setReferenceLevel(static_cast<float>(value)); }},
          {.name = "maxBassBoostDB",
           .minimum = 0,
           .maximum = 20,
           .defaultValue = 12,
           .unit = "dB",
           .get = [this] { return maxBassBoostDB(); },
           .set = [this](double value) { setMaxBassBoostDB(static_cast<float>(value)); }},
          {.name = "maxTrebleBoostDB",
           .minimum = 0,
           .maximum = 12,
           .defaultValue = 6,
           .unit = "dB",
           .get = [this] { return maxTrebleBoostDB(); },
           .set = [this](double value) { setMaxTrebleBoostDB(static_cast<float>(value)); }}};
}

}  // namespace velorin
