// The fixed stage before the chain: room for what the effects add.
#pragma once

#include <atomic>

#include "dsp/HeldValue.h"
#include "dsp/effects/ClippingDetector.h"

namespace velorin {

class HeadroomDSP {
 public:
  /// The detector starts anew with each change of headroom, and outlives this.
  explicit HeadroomDSP(ClippingDetector& detector) : _detector(detector) {}

  /// dB to take away, at most 100; 0 or less, or a NaN, for none. Any thread but the render thread.
  void setHeadroom(double dB) noexcept;
  float headroomDB() const noexcept { return _headroomDB.get(); }
  void reset() noexcept { setHeadroom(0); }

  /// Render thread.
  void process(AudioBufferList& buffers, std::int64_t frameCount) noexcept;

 private:
  ClippingDetector& _detector;
  std::atomic<float> _gainLinear{1};
  HeldValue<float> _headroomDB{-100, 100, 0};
};

}  // namespace velorin
