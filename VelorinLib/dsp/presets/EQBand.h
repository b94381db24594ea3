// One band of the parametric equalizer.
#pragma once

#include <array>
#include <optional>
#include <string_view>
#include <vector>

#include "dsp/filters/Biquad.h"

namespace velorin {

/// A band as it is stored and edited. Frequencies in Hz, gains in dB.
struct EQBand {
  /// The values are those of preset files.
  enum class FilterType { peaking = 0, lowShelf = 1, highShelf = 2, lowPass = 3, highPass = 4 };

  /// The Q of a new band, the only such figure of the program: a third of an octave.
  static constexpr double kDefaultQ = 4.318;
  static constexpr double kLowestGain = -12;
  static constexpr double kHighestGain = 12;
  static constexpr double kLowestQ = 0.1;
  static constexpr double kHighestQ = 10;

  double frequency = 1000;  ///< centre or corner
  double gain = 0;          ///< without effect on lowPass and highPass
  double q = kDefaultQ;
  FilterType filterType = FilterType::peaking;

  bool operator==(const EQBand&) const = default;

  /// False for a peaking band below 0.01 dB: it would change nothing that can be heard, and takes
  /// no section.
  bool isActive() const noexcept;

  /// The band with gain and Q held within their limits. NaN becomes the value of a new band.
  EQBand clamped() const noexcept;

  /// The filter of this band at a sample rate in Hz. None where there is no such filter: the
  /// frequency must be above 0 and below half the rate.
  std::optional<BiquadCoefficients> design(double sampleRate) const;
};

/// "Peaking", "Low Shelf" …
std::string_view label(EQBand::FilterType type) noexcept;

/// The frequencies of the equalizer: third octaves from 20 Hz to 20 kHz.
inline constexpr std::array<double, 31> kEQGrid = {
    20,  25,   31.5, 40,   50,   63,   80,   100,  125,  160,  200,  250,   315,   400,   500,  630,
    800, 1000, 1250, 1600, 2000, 2500, 3150, 4000, 5000, 6300, 8000, 10000, 12500, 16000, 20000};

/// New bands on that grid: gain 0.
std::vector<EQBand> flatBands();

}  // namespace velorin
