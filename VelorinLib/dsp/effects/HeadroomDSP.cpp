#include "dsp/effects/HeadroomDSP.h"

#include "dsp/effects/Level.h"

namespace velorin {

void HeadroomDSP::setHeadroom(double dB) noexcept {
  _headroomDB.set(isManaged() ? dB : 0);
  const float held = headroomDB();
  _gainLinear.store(held > 0 ? linearGain(-held) : 1.0f, std::memory_order_relaxed);
  _detector.reset();
}

void HeadroomDSP::setManaged(bool managed) noexcept {
  _isManaged.store(managed, std::memory_order_relaxed);
  if (!managed) reset();
}

void HeadroomDSP::process(AudioBufferList& buffers, std::int64_t frameCount) noexcept {
  const float gain = _gainLinear.load(std::memory_order_relaxed);
  if (gain >= 0.9999f) return;
  multiplyChannels(buffers, gain, frameCount);
}

}  // namespace velorin
