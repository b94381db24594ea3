#include "dsp/effects/LoudnessCompensationDSP.h"

#include <algorithm>
#include <cmath>

namespace velorin {
namespace {

constexpr double kAlphaDivisor = 1.4;
constexpr double kBassCorner = 628.3185307179587;     // radians a second: 100 Hz
constexpr double kTrebleCorner = 62831.853071795864;  // 10 kHz
constexpr double kBassHz = 100;
constexpr double kTrebleHz = 10000;

}  // namespace

float LoudnessCompensationDSP::boostFactor() const noexcept {
  const float reference = referenceLevel();
  return std::max(reference - volume(), 0.0f) / std::max(reference, 0.01f);
}

void LoudnessCompensationDSP::change(HeldValue<float>& parameter, double value) {
  // Until the new filter is in place a block may still run with the old one.
  parameter.set(value);
  _filter.redesign([this](double rate) { return design(rate); });
}

void LoudnessCompensationDSP::setVolume(double volume) {
  change(_volume, volume);
}

void LoudnessCompensationDSP::setReferenceLevel(double level) {
  change(_referenceLevel, level);
}

void LoudnessCompensationDSP::setMaxBassBoostDB(double dB) {
  change(_maxBassBoostDB, dB);
}

void LoudnessCompensationDSP::setMaxTrebleBoostDB(double dB) {
  change(_maxTrebleBoostDB, dB);
}

void LoudnessCompensationDSP::sampleRateChanged(double sampleRate) {
  _filter.designFor(sampleRate, [this](double rate) { return design(rate); });
}

std::vector<BiquadCoefficients> LoudnessCompensationDSP::design(double sampleRate) const {
  const float factor = boostFactor();
  const auto amplitude = [](float dB) { return std::pow(10.0, static_cast<double>(dB) / 40); };
  std::vector<BiquadCoefficients> sections;
  if (biquad::isUsable(sampleRate, kBassHz)) {
    sections.push_back(biquad::lowShelfOf(kBassCorner / sampleRate, kAlphaDivisor,
                                          amplitude(maxBassBoostDB() * factor)));
  }
  if (biquad::isUsable(sampleRate, kTrebleHz)) {
    sections.push_back(biquad::highShelfOf(kTrebleCorner / sampleRate, kAlphaDivisor,
                                           amplitude(maxTrebleBoostDB() * factor)));
  }
  return sections;
}

void LoudnessCompensationDSP::process(AudioBufferList& buffers, std::int64_t frameCount,
                                      double sampleRate) noexcept {
  if (!isEnabled() || frameCount < 1 || referenceLevel() <= volume()) return;
  _filter.process(buffers, frameCount, sampleRate);
}

std::vector<EffectParameter> LoudnessCompensationDSP::parameters() {
  return {{.name = "referenceLevel",
           .minimum = 0.3,
           .maximum = 1,
           .defaultValue = 0.8,
           .get = [this] { return referenceLevel(); },
           .set = [this](double value) { setReferenceLevel(value); }},
          {.name = "maxBassBoostDB",
           .minimum = 0,
           .maximum = 20,
           .defaultValue = 12,
           .unit = "dB",
           .get = [this] { return maxBassBoostDB(); },
           .set = [this](double value) { setMaxBassBoostDB(value); }},
          {.name = "maxTrebleBoostDB",
           .minimum = 0,
           .maximum = 12,
           .defaultValue = 6,
           .unit = "dB",
           .get = [this] { return maxTrebleBoostDB(); },
           .set = [this](double value) { setMaxTrebleBoostDB(value); }}};
}

}  // namespace velorin
