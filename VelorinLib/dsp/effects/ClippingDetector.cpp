#include "dsp/effects/ClippingDetector.h"

#include "platform/vector/Vector.h"

namespace velorin {

void ClippingDetector::process(const AudioBufferList& buffers, std::int64_t frameCount) noexcept {
  constexpr auto kRelaxed = std::memory_order_relaxed;
  if (frameCount < 1) return;
  bool clips = false;
  for (std::uint32_t i = 0; i < buffers.bufferCount; ++i) {
    const auto* data = buffers.channel<float>(i);
    if (data == nullptr) continue;
    const float peak = vector::maxMagnitude(data, static_cast<std::size_t>(frameCount));
    if (i == 0) _peakL.store(peak, kRelaxed);
    if (i == 1) _peakR.store(peak, kRelaxed);
    clips = clips || peak > 1.0f;
  }
  const std::int32_t hold = _holdCounter.load(kRelaxed);
  if (clips) {
    _isClipping.store(true, kRelaxed);
    _holdCounter.store(kHoldBuffers, kRelaxed);
    _clipCount.fetch_add(1, kRelaxed);
  } else if (hold < 1) {
    _isClipping.store(false, kRelaxed);
  } else {
    _holdCounter.store(hold - 1, kRelaxed);
  }
}

void ClippingDetector::reset() noexcept {
  _isClipping.store(false, std::memory_order_relaxed);
  _clipCount.store(0, std::memory_order_relaxed);
  _holdCounter.store(0, std::memory_order_relaxed);
}

}  // namespace velorin
