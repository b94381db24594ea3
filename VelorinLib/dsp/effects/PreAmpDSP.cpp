#include "dsp/effects/PreAmpDSP.h"

#include "dsp/effects/Level.h"

namespace velorin {

void PreAmpDSP::setGain(double gainDB) noexcept {
  _gainDB.set(gainDB);
  _gainLinear.store(linearGain(gain()), std::memory_order_relaxed);
}

void PreAmpDSP::process(AudioBufferList& buffers, std::int64_t frameCount,
                        double /*sampleRate*/) noexcept {
  if (gain() == 0) return;
  multiplyChannels(buffers, _gainLinear.load(std::memory_order_relaxed), frameCount);
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
