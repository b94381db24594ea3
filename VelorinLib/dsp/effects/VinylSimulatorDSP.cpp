#include "dsp/effects/VinylSimulatorDSP.h"

#include <algorithm>
#include <cmath>

#include "platform/vector/Vector.h"

namespace velorin {
namespace {

constexpr float kTwoToMinus32 = 0x1p-32f;

std::vector<BiquadCoefficients> lowPass(double rate, double f, double q) {
  if (!biquad::isUsable(rate, f)) return {};
  return {biquad::lowPass(rate, f, q)};
}

}  // namespace

void VinylSimulatorDSP::setWarmth(float warmth) {
  _warmth.store(warmth, std::memory_order_relaxed);
  sampleRateChanged(_filters.rate());
}

void VinylSimulatorDSP::sampleRateChanged(double sampleRate) {
  if (!(sampleRate > 0)) return;
  const double corner = 20000.0 * std::pow(0.15, static_cast<double>(warmth()));
  _filters.install(
      std::make_unique<Filters>(lowPass(sampleRate, corner, 0.707), lowPass(sampleRate, 4000, 0.5)),
      sampleRate);
}

void VinylSimulatorDSP::process(AudioBufferList& buffers, std::int64_t frameCount,
                                double sampleRate) noexcept {
  if (frameCount < 1 || !_filters.fits(sampleRate)) return;
  const auto filters = _filters.tryUse();
  if (!filters) return;
  const auto n = static_cast<std::size_t>(std::min(frameCount, kMaxFrames));
  makeNoise(*filters, n);
  const bool rollsOff = warmth() > 0.01f;
  for (std::uint32_t i = 0; i < buffers.bufferCount; ++i) {
    auto* data = buffers.channel<float>(i);
    if (data == nullptr) continue;
    if (rollsOff) filters->warmth.processChannel(i == 0 ? 0 : 1, data, data, n);
    vector::add(data, _noiseBuf.data(), data, n);
  }
}

void VinylSimulatorDSP::makeNoise(Filters& filters, std::size_t n) noexcept {
  float* noise = _noiseBuf.data();
  for (std::size_t i = 0; i < n; ++i) {
    noise[i] = static_cast<float>(static_cast<std::int32_t>(draw())) * kTwoToMinus32;
  }
  filters.noise.processChannel(0, noise, noise, n);
  vector::multiplyByScalar(noise, noiseLevel() * 0.02f, noise, n);

  const float threshold = crackleRate() * 0.003f;
  for (std::size_t i = 0; i < n; ++i) {
    float spike = 0;
    if (static_cast<float>(draw()) * kTwoToMinus32 < threshold) {
      const std::uint32_t state = draw();
      spike = static_cast<float>(state) * kTwoToMinus32 * 0.05f + 0.01f;
      if ((state & 1) != 0) spike = -spike;
    }
    _crackleBuf[i] = spike;
  }
  vector::add(noise, _crackleBuf.data(), noise, n);
}

std::vector<EffectParameter> VinylSimulatorDSP::parameters() {
  return {{.name = "noiseLevel",
           .minimum = 0,
           .maximum = 1,
           .defaultValue = 0.15,
           .get = [this] { return noiseLevel(); },
           .set = [this](double value) { setNoiseLevel(static_cast<float>(value)); }},
          {.name = "crackleRate",
           .minimum = 0,
           .maximum = 1,
           .defaultValue = 0.3,
           .get = [this] { return crackleRate(); },
           .set = [this](double value) { setCrackleRate(static_cast<float>(value)); }},
          {.name = "warmth",
           .minimum = 0,
           .maximum = 1,
           .defaultValue = 0.5,
           .get = [this] { return warmth(); },
           .set = [this](double value) { setWarmth(static_cast<float>(value)); }}};
}

}  // namespace velorin
