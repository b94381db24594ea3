#include "dsp/effects/RIAAVinylCurveDSP.h"

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

}  // namespace

void RIAAVinylCurveDSP::sampleRateChanged(double sampleRate) {
  if (!(sampleRate > 0)) return;
  const BiquadCoefficients sections[] = {
      biquad::lowShelfOf(kBass.corner / sampleRate, kAlphaDivisor, kBass.amplitude),
      biquad::highShelfOf(kMidrange.corner / sampleRate, kAlphaDivisor, kMidrange.amplitude),
      biquad::highShelfOf(kTreble.corner / sampleRate, kAlphaDivisor, kTreble.amplitude),
  };
  _filter.install(sections, sampleRate);
}

void RIAAVinylCurveDSP::process(AudioBufferList& buffers, std::int64_t frameCount,
                                double sampleRate) noexcept {
  if (!isEnabled() || frameCount < 1 || !_filter.fits(sampleRate)) return;
  _filter.process(buffers, frameCount);
}

}  // namespace velorin
