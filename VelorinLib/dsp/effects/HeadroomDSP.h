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
  /// The listener's switch: while it is off there is no headroom, whatever is set. After it was
  /// turned on, the headroom is to be set anew.
  void setManaged(bool managed) noexcept;
  bool isManaged() const noexcept { return _isManaged.load(std::memory_order_relaxed); }
  void reset() noexcept { setHeadroom(0); }

  /// Render thread.
  void process(AudioBufferList& buffers, std::int64_t frameCount) noexcept;

 private:
  ClippingDetector& _detector;
  std::atomic<float> _gainLinear{1};
  std::atomic<bool> _isManaged{true};
  HeldValue<float> _headroomDB{-100, 100, 0};
};

}  // namespace velorin
