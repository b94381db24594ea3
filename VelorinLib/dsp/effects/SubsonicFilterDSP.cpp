#include "dsp/effects/SubsonicFilterDSP.h"

namespace velorin {
namespace {

// Of alpha = sin(w) / 1.4142.
constexpr double kQ = 1.4142 / 2;

}  // namespace

void SubsonicFilterDSP::setCutoff(float cutoff) {
  _cutoff.store(cutoff, std::memory_order_relaxed);
  sampleRateChanged(_filter.rate());
}

void SubsonicFilterDSP::sampleRateChanged(double sampleRate) {
  if (!(sampleRate > 0)) return;
  std::vector<BiquadCoefficients> sections;
  if (biquad::isUsable(sampleRate, cutoff())) {
    sections.push_back(biquad::highPass(sampleRate, cutoff(), kQ));
  }
  _filter.install(sections, sampleRate);
}

void SubsonicFilterDSP::process(AudioBufferList& buffers, std::int64_t frameCount,
                                double sampleRate) noexcept {
  if (!isEnabled() || frameCount < 1 || !_filter.fits(sampleRate)) return;
  _filter.process(buffers, frameCount);
}

std::vector<EffectParameter> SubsonicFilterDSP::parameters() {
  return {{.name = "cutoff",
           .minimum = 5,
           .maximum = 50,
           .defaultValue = 20,
           .unit = "Hz",
           .get = [this] { return cutoff(); },
           .set = [this](double value) { setCutoff(static_cast<float>(value)); }}};
}

}  // namespace velorin
