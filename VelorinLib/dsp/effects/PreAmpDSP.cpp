#include "dsp/effects/PreAmpDSP.h"

#include "dsp/effects/Level.h"

namespace velorin {

void PreAmpDSP::setGain(float gainDB) noexcept {
  _gainLinear.store(linearGain(gainDB), std::memory_order_relaxed);
  _gainDB.store(gainDB, std::memory_order_relaxed);
}

void PreAmpDSP::process(AudioBufferList& buffers, std::int64_t frameCount,
                        double /*sampleRate*/) noexcept {
  if (_gainDB.load(std::memory_order_relaxed) == 0) return;
  multiplyChannels(buffers, _gainLinear.load(std::memory_order_relaxed), frameCount);
}

std::vector<EffectParameter> PreAmpDSP::parameters() {
  return {{.name = "gainDB",
           .minimum = -12,
           .maximum = 12,
           .defaultValue = 0,
           .unit = "dB",
           .get = [this] { return gain(); },
           .set = [this](double value) { setGain(static_cast<float>(value)); }}};
}

}  // namespace velorin
