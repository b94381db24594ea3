#include "dsp/filters/Biquad.h"

#include <cmath>
#include <numbers>

namespace velorin::biquad {
namespace {

double angle(double rate, double f) {
  return 2 * std::numbers::pi * f / rate;
}

BiquadCoefficients normalised(double b0, double b1, double b2, double a0, double a1, double a2) {
  return {b0 / a0, b1 / a0, b2 / a0, a1 / a0, a2 / a0};
}

double amplitude(double gain) {
  return std::pow(10.0, gain / 40);
}

}  // namespace

BiquadCoefficients peaking(double rate, double f, double q, double gain) {
  const double w = angle(rate, f);
  const double alpha = std::sin(w) / (2 * q);
  const double c = std::cos(w);
  const double a = amplitude(gain);
  return normalised(1 + alpha * a, -2 * c, 1 - alpha * a, 1 + alpha / a, -2 * c, 1 - alpha / a);
}

BiquadCoefficients lowShelfOf(double w, double alphaDivisor, double a) {
  const double c = std::cos(w);
  const double t = 2 * std::sqrt(a) * std::sin(w) / alphaDivisor;
  return normalised(a * ((a + 1) - (a - 1) * c + t), 2 * a * ((a - 1) - (a + 1) * c),
                    a * ((a + 1) - (a - 1) * c - t), (a + 1) + (a - 1) * c + t,
                    -2 * ((a - 1) + (a + 1) * c), (a + 1) + (a - 1) * c - t);
}

BiquadCoefficients highShelfOf(double w, double alphaDivisor, double a) {
  const double c = std::cos(w);
  const double t = 2 * std::sqrt(a) * std::sin(w) / alphaDivisor;
  return normalised(a * ((a + 1) + (a - 1) * c + t), -2 * a * ((a - 1) + (a + 1) * c),
                    a * ((a + 1) + (a - 1) * c - t), (a + 1) - (a - 1) * c + t,
                    2 * ((a - 1) - (a + 1) * c), (a + 1) - (a - 1) * c - t);
}

BiquadCoefficients lowShelf(double rate, double f, double q, double gain) {
  return lowShelfOf(angle(rate, f), 2 * q, amplitude(gain));
}

BiquadCoefficients highShelf(double rate, double f, double q, double gain) {
  return highShelfOf(angle(rate, f), 2 * q, amplitude(gain));
}

BiquadCoefficients lowPass(double rate, double f, double q) {
  const double w = angle(rate, f);
  const double alpha = std::sin(w) / (2 * q);
  const double c = std::cos(w);
  return normalised((1 - c) / 2, 1 - c, (1 - c) / 2, 1 + alpha, -2 * c, 1 - alpha);
}

BiquadCoefficients highPass(double rate, double f, double q) {
  const double w = angle(rate, f);
  const double alpha = std::sin(w) / (2 * q);
  const double c = std::cos(w);
  return normalised((1 + c) / 2, -(1 + c), (1 + c) / 2, 1 + alpha, -2 * c, 1 - alpha);
}

bool isUsable(double rate, double f) noexcept {
  return f > 0 && f < rate / 2;
}

bool isStable(const BiquadCoefficients& section) noexcept {
  const bool isFinite =
      std::isfinite(section.b0) && std::isfinite(section.b1) && std::isfinite(section.b2);
  // The triangle of Jury's criterion; false when one of the two is NaN.
  return isFinite && std::fabs(section.a2) < 1 && std::fabs(section.a1) < 1 + section.a2;
}

std::complex<double> response(const BiquadCoefficients& section, double rate, double frequency) {
  const auto z = std::polar(1.0, -angle(rate, frequency));
  return (section.b0 + z * (section.b1 + z * section.b2)) /
         (1.0 + z * (section.a1 + z * section.a2));
}

}  // namespace velorin::biquad
