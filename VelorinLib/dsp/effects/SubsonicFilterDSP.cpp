#include "dsp/effects/SubsonicFilterDSP.h"

namespace velorin {
namespace {

// Of alpha = sin(w) / 1.4142.
constexpr double kQ = 1.4142 / 2;

}  // namespace

std::vector<BiquadCoefficients> SubsonicFilterDSP::design(double sampleRate) const {
  if (!biquad::isUsable(sampleRate, cutoff())) return {};
  return {biquad::highPass(sampleRate, cutoff(), kQ)};
}

void SubsonicFilterDSP::setCutoff(double cutoff) {
  _cutoff.set(cutoff);
  _filter.redesign([this](double rate) { return design(rate); });
}

void SubsonicFilterDSP::sampleRateChanged(double sampleRate) {
  _filter.designFor(sampleRate, [this](double rate) { return design(rate); });
}

void SubsonicFilterDSP::process(AudioBufferList& buffers, std::int64_t frameCount,
                                double sampleRate) noexcept {
  if (!isEnabled() || frameCount < 1) return;
  _filter.process(buffers, frameCount, sampleRate);
}

std::vector<EffectParameter> SubsonicFilterDSP::parameters() {
  return {{.name = "cutoff",
           .minimum = 5,
           .maximum = 50,
           .defaultValue = 20,
           .unit = "Hz",
           .get = [this] { return cutoff(); },
           .set = [this](double value) { setCutoff(value); }}};
}

}  // namespace velorin
