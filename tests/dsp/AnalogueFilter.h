// The circuits that digital filters stand for.
#pragma once

#include <cmath>
#include <complex>
#include <numbers>

#include "dsp/presets/EQBand.h"

namespace velorin::test {

/// Magnitude of the cookbook's analogue prototype at the frequency that the bilinear transform maps
/// to f. Shares no arithmetic with the digital coefficients.
inline double analogueMagnitude(const EQBand& band, double f, double rate) {
  using Type = EQBand::FilterType;
  using std::numbers::pi;
  const std::complex<double> s(0, std::tan(pi * f / rate) / std::tan(pi * band.frequency / rate));
  const double a = std::pow(10.0, band.gain / 40);
  const double q = band.q;
  const double r = std::sqrt(a);
  switch (band.filterType) {
    case Type::peaking:
      return std::abs((s * s + s * (a / q) + 1.0) / (s * s + s / (a * q) + 1.0));
    case Type::lowShelf:
      return std::abs(a * (s * s + s * (r / q) + a) / (a * s * s + s * (r / q) + 1.0));
    case Type::highShelf:
      return std::abs(a * (a * s * s + s * (r / q) + 1.0) / (s * s + s * (r / q) + a));
    case Type::lowPass:
      return std::abs(1.0 / (s * s + s / q + 1.0));
    case Type::highPass:
      return std::abs(s * s / (s * s + s / q + 1.0));
  }
  return 0;
}

}  // namespace velorin::test
