// Second-order filter sections: their design.
//
// Formulas: R. Bristow-Johnson, "Cookbook formulae for audio EQ biquad filter coefficients", in
// double precision. f: corner or centre in Hz, above 0 and below half the rate; rate in Hz; gain in
// dB; q above 0. Pure functions, any thread but the render thread.
#pragma once

#include <complex>
#include <optional>

namespace velorin {

/// y[n] = b0 x[n] + b1 x[n-1] + b2 x[n-2] - a1 y[n-1] - a2 y[n-2]; a0 is 1.
struct BiquadCoefficients {
  double b0 = 1;
  double b1 = 0;
  double b2 = 0;
  double a1 = 0;
  double a2 = 0;

  bool operator==(const BiquadCoefficients&) const = default;
};

namespace biquad {

BiquadCoefficients peaking(double rate, double f, double q, double gain);
BiquadCoefficients lowShelf(double rate, double f, double q, double gain);
BiquadCoefficients highShelf(double rate, double f, double q, double gain);
BiquadCoefficients lowPass(double rate, double f, double q);
BiquadCoefficients highPass(double rate, double f, double q);

/// Shelves of amplitude parameter A = 10^(gain / 40) with alpha given as sin(w) / alphaDivisor, for
/// filters whose constants are published in that form.
BiquadCoefficients lowShelfOf(double w, double alphaDivisor, double a);
BiquadCoefficients highShelfOf(double w, double alphaDivisor, double a);

/// True when a filter of that corner can be designed at the rate: 0 < f < rate / 2.
bool isUsable(double rate, double f) noexcept;

/// True when all five are finite and both poles lie within the unit circle. Not so of a filter
/// whose corner is so low beside the rate, or whose gain is so great, that doubles cannot hold it.
bool isStable(const BiquadCoefficients& section) noexcept;

/// H(e^jw) of the section at a frequency in Hz.
std::complex<double> response(const BiquadCoefficients& section, double rate, double frequency);

}  // namespace biquad
}  // namespace velorin
