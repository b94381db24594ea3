#include "dsp/effects/HeadroomDSP.h"

#include "dsp/effects/Level.h"

namespace velorin {

void HeadroomDSP::setHeadroom(float dB) noexcept {
  _headroomDB.store(dB, std::memory_order_relaxed);
  _gainLinear.store(dB <= 0 ? 1.0f : linearGain(-dB), std::memory_order_relaxed);
  _detector.reset();
}

void HeadroomDSP::process(AudioBufferList& buffers, std::int64_t frameCount) noexcept {
  const float gain = _gainLinear.load(std::memory_order_relaxed);
  if (gain >= 0.9999f) return;
  multiplyChannels(buffers, gain, frameCount);
}

}  // namespace velorin
