// The fixed stage before the chain: room for what the effects add.
#pragma once

#include <atomic>

#include "dsp/effects/ClippingDetector.h"

namespace velorin {

class HeadroomDSP {
 public:
  /// The detector starts anew with each change of headroom, and outlives this.
  explicit HeadroomDSP(ClippingDetector& detector) : _detector(detector) {}

  /// dB to take away, 0 or less for none. Any thread but the render thread.
  void setHeadroom(float dB) noexcept;
  float headroomDB() const noexcept { return _headroomDB.load(std::memory_order_relaxed); }
  void reset() noexcept { setHeadroom(0); }

  /// Render thread.
  void process(AudioBufferList& buffers, std::int64_t frameCount) noexcept;

 private:
  ClippingDetector& _detector;
  std::atomic<float> _gainLinear{1};
  std::atomic<float> _headroomDB{0};
};

}  // namespace velorin
