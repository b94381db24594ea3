#include "dsp/presets/HeadphoneProfile.h"

namespace velorin {

std::optional<BiquadCoefficients> PEQFilter::design(double sampleRate) const {
  if (!biquad::isUsable(sampleRate, fc) || !(q > 0)) return std::nullopt;
  const auto coefficients = [&] {
    switch (type) {
      case PEQFilterType::peaking:
        break;
      case PEQFilterType::lowShelf:
        return biquad::lowShelf(sampleRate, fc, q, gain);
      case PEQFilterType::highShelf:
        return biquad::highShelf(sampleRate, fc, q, gain);
    }
    return biquad::peaking(sampleRate, fc, q, gain);
  }();
  if (!biquad::isStable(coefficients)) return std::nullopt;
  return coefficients;
}

std::string_view label(HeadphoneForm form) noexcept {
  switch (form) {
    case HeadphoneForm::overEar:
      break;
    case HeadphoneForm::inEar:
      return "In-ear";
    case HeadphoneForm::earbud:
      return "Earbud";
  }
  return "Over-ear";
}

}  // namespace velorin
