#include "dsp/effects/VinylSimulatorDSP.h"

#include <algorithm>
#include <cmath>

#include "dsp/effects/FixedFilter.h"
#include "platform/vector/Vector.h"

namespace velorin {
namespace {

std::vector<BiquadCoefficients> lowPass(double rate, double f, double q) {
  if (!biquad::isUsable(rate, f)) return {};
  return {biquad::lowPass(rate, f, q)};
}

}  // namespace

void VinylSimulatorDSP::setWarmth(double warmth) {
  _warmth.set(warmth);
  _filters.redesign([this](double rate) { return design(rate); });
}

void VinylSimulatorDSP::sampleRateChanged(double sampleRate) {
  _filters.designFor(sampleRate, [this](double rate) { return design(rate); });
}

std::unique_ptr<VinylSimulatorDSP::Filters> VinylSimulatorDSP::design(double sampleRate) const {
  const double corner = 20000.0 * std::pow(0.15, static_cast<double>(warmth()));
  return std::make_unique<Filters>(lowPass(sampleRate, corner, 0.707),
                                   lowPass(sampleRate, 4000, 0.5));
}

void VinylSimulatorDSP::process(AudioBufferList& buffers, std::int64_t frameCount,
                                double sampleRate) noexcept {
  if (frameCount < 1) return;
  const auto filters = _filters.use(sampleRate);
  if (!filters) return;
  const auto n = static_cast<std::size_t>(std::min(frameCount, kMaxFrames));
  if (warmth() > 0.01f) filterChannels(filters->warmth, buffers, n);

  // All of a block's noise is drawn before its crackle.
  NoiseGenerator noise = _generator;
  NoiseGenerator crackle = _generator.ahead(n);
  const float noiseGain = noiseLevel() * 0.02f;
  const float threshold = crackleRate() * 0.003f;
  const bool isSilent = noiseGain == 0 && threshold == 0;
  for (std::size_t from = 0; from < n; from += kPiece) {
    const std::size_t count = std::min(kPiece, n - from);
    for (std::size_t i = 0; i < count; ++i) _noiseBuf[i] = noise.drawSigned();
    filters->noise.processChannel(0, _noiseBuf.data(), _noiseBuf.data(), count);
    vector::multiplyByScalar(_noiseBuf.data(), noiseGain, _noiseBuf.data(), count);
    for (std::size_t i = 0; i < count; ++i) {
      float spike = 0;
      if (crackle.drawUnsigned() < threshold) {
        const std::uint32_t state = crackle.draw();
        spike = static_cast<float>(state) * 0x1p-32f * 0.05f + 0.01f;
        if ((state & 1) != 0) spike = -spike;
      }
      _crackleBuf[i] = spike;
    }
    vector::add(_noiseBuf.data(), _crackleBuf.data(), _noiseBuf.data(), count);
    for (std::uint32_t i = 0; i < buffers.bufferCount && !isSilent; ++i) {
      auto* data = buffers.channel<float>(i);
      if (data != nullptr) vector::add(data + from, _noiseBuf.data(), data + from, count);
    }
  }
  _generator = crackle;
}

std::vector<EffectParameter> VinylSimulatorDSP::parameters() {
  return {{.name = "noiseLevel",
           .minimum = 0,
           .maximum = 1,
           .defaultValue = 0.15,
           .get = [this] { return noiseLevel(); },
           .set = [this](double value) { setNoiseLevel(value); }},
          {.name = "crackleRate",
           .minimum = 0,
           .maximum = 1,
           .defaultValue = 0.3,
           .get = [this] { return crackleRate(); },
           .set = [this](double value) { setCrackleRate(value); }},
          {.name = "warmth",
           .minimum = 0,
           .maximum = 1,
           .defaultValue = 0.5,
           .get = [this] { return warmth(); },
           .set = [this](double value) { setWarmth(value); }}};
}

}  // namespace velorin
