#include "dsp/presets/EQBand.h"

#include <algorithm>
#include <cmath>

namespace velorin {
namespace {

constexpr double kLeastActiveGain = 0.01;

double held(double value, double low, double high, double ifNaN) noexcept {
  return std::isnan(value) ? ifNaN : std::clamp(value, low, high);
}

}  // namespace

bool EQBand::isActive() const noexcept {
  return filterType != FilterType::peaking || std::fabs(gain) >= kLeastActiveGain;
}

EQBand EQBand::clamped() const noexcept {
  EQBand band = *this;
  band.gain = held(gain, kLowestGain, kHighestGain, 0);
  band.q = held(q, kLowestQ, kHighestQ, kDefaultQ);
  return band;
}

std::optional<BiquadCoefficients> EQBand::design(double sampleRate) const {
  if (!biquad::isUsable(sampleRate, frequency)) return std::nullopt;
  const double width = std::max(q, kLowestQ);
  const auto coefficients = [&] {
    switch (filterType) {
      case FilterType::peaking:
        break;
      case FilterType::lowShelf:
        return biquad::lowShelf(sampleRate, frequency, width, gain);
      case FilterType::highShelf:
        return biquad::highShelf(sampleRate, frequency, width, gain);
      case FilterType::lowPass:
        return biquad::lowPass(sampleRate, frequency, width);
      case FilterType::highPass:
        return biquad::highPass(sampleRate, frequency, width);
    }
    return biquad::peaking(sampleRate, frequency, width, gain);
  }();
  if (!biquad::isStable(coefficients)) return std::nullopt;
  return coefficients;
}

std::string_view label(EQBand::FilterType type) noexcept {
  switch (type) {
    case EQBand::FilterType::peaking:
      break;
    case EQBand::FilterType::lowShelf:
      return "Low Shelf";
    case EQBand::FilterType::highShelf:
      return "High Shelf";
    case EQBand::FilterType::lowPass:
      return "Low Pass";
    case EQBand::FilterType::highPass:
      return "High Pass";
  }
  return "Peaking";
}

std::vector<EQBand> flatBands() {
  std::vector<EQBand> bands;
  bands.reserve(kEQGrid.size());
  for (const double frequency : kEQGrid) bands.push_back({.frequency = frequency});
  return bands;
}

}  // namespace velorin
