// A correction of one model of headphones: a gain and a cascade of filters.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "dsp/filters/Biquad.h"

namespace velorin {

/// Written "PK", "LSC" and "HSC".
enum class PEQFilterType { peaking, lowShelf, highShelf };

struct PEQFilter {
  PEQFilterType type = PEQFilterType::peaking;
  double fc = 0;    ///< Hz
  double gain = 0;  ///< dB
  double q = 0;

  bool operator==(const PEQFilter&) const = default;

  /// The filter at a sample rate in Hz. None where there is no such filter: fc must be above 0 and
  /// below half the rate, q above 0, the gain one that doubles can hold.
  std::optional<BiquadCoefficients> design(double sampleRate) const;
};

/// Written "over-ear", "in-ear" and "earbud".
enum class HeadphoneForm { overEar, inEar, earbud };

/// "Over-ear" …, for a panel.
std::string_view label(HeadphoneForm form) noexcept;

struct HeadphoneProfile {
  std::string id;     ///< the key: what a stored chain names
  std::string model;  ///< what is searched and shown
  std::string brand;  ///< what profiles are grouped by
  HeadphoneForm form = HeadphoneForm::overEar;
  std::string source;              ///< who measured it
  std::string target;              ///< the curve that it corrects to
  double preamp = 0;               ///< dB in front of the filters, usually negative
  std::vector<PEQFilter> filters;  ///< in order of the cascade

  bool operator==(const HeadphoneProfile&) const = default;
};

}  // namespace velorin
