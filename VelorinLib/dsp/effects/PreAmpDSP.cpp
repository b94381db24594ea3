#include "dsp/effects/PreAmpDSP.h"

#include "dsp/effects/Level.h"

namespace velorin {

void PreAmpDSP::setGain(double gainDB) noexcept {
  _gainDB.set(gainDB);
  update();
}

void PreAmpDSP::setOffset(double offsetDB) noexcept {
  _offsetDB.set(offsetDB);
  update();
}

void PreAmpDSP::update() noexcept {
  _gainLinear.store(linearGain(gain() + offset()), std::memory_order_relaxed);
}

void PreAmpDSP::process(AudioBufferList& buffers, std::int64_t frameCount,
                        double /*sampleRate*/) noexcept {
  const float linear = _gainLinear.load(std::memory_order_relaxed);
  if (linear == 1) return;
  multiplyChannels(buffers, linear, frameCount);
}

std::vector<EffectParameter> PreAmpDSP::parameters() {
  return {{.name = "gainDB",
           .minimum = -12,
           .maximum = 12,
           .defaultValue = 0,
           .unit = "dB",
           .get = [this] { return gain(); },
           .set = [this](double value) { setGain(value); }}};
}

}  // namespace velorin
