#include "dsp/effects/RIAAVinylCurveDSP.h"

#include <numbers>

namespace velorin {
namespace {

constexpr double kAlphaDivisor = 1.414;

// Angular frequency of the corner in radians a second, and A = 10^(gain / 40).
struct Shelf {
  double corner;
  double amplitude;
};
constexpr Shelf kBass{314.4734246243383, 3.1441264202587953};      // 50.05 Hz, +19.9 dB
constexpr Shelf kMidrange{3144.734246243383, 0.4704354057259761};  // 500.5 Hz, -13.1 dB
constexpr Shelf kTreble{13332.919221835082, 0.45446453720950875};  // 2122 Hz, -13.7 dB

std::vector<BiquadCoefficients> design(double rate) {
  std::vector<BiquadCoefficients> sections;
  const auto add = [&](auto& shelfOf, const Shelf& shelf) {
    if (!biquad::isUsable(rate, shelf.corner / (2 * std::numbers::pi))) return;
    sections.push_back(shelfOf(shelf.corner / rate, kAlphaDivisor, shelf.amplitude));
  };
  add(biquad::lowShelfOf, kBass);
  add(biquad::highShelfOf, kMidrange);
  add(biquad::highShelfOf, kTreble);
  return sections;
}

}  // namespace

void RIAAVinylCurveDSP::sampleRateChanged(double sampleRate) {
  _filter.designFor(sampleRate, design);
}

void RIAAVinylCurveDSP::process(AudioBufferList& buffers, std::int64_t frameCount,
                                double sampleRate) noexcept {
  if (!isEnabled() || frameCount < 1) return;
  _filter.process(buffers, frameCount, sampleRate);
}

}  // namespace velorin
