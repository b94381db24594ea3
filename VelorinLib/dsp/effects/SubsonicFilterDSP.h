// A high-pass against rumble and DC.
#pragma once

#include <atomic>
#include <memory>

#include "dsp/DSPEffect.h"
#include "dsp/effects/FixedFilter.h"

namespace velorin {

/// A Butterworth section of second order on every channel. Channels beyond the first share one
/// state.
class SubsonicFilterDSP : public DSPEffect {
 public:
  SubsonicFilterDSP() : DSPEffect(DSPEffectType::subsonicFilter) {}

  /// Hz. Designs the filter anew. Not the render thread.
  void setCutoff(float cutoff);
  float cutoff() const noexcept { return _cutoff.load(std::memory_order_relaxed); }

  void process(AudioBufferList& buffers, std::int64_t frameCount,
               double sampleRate) noexcept override;
  void sampleRateChanged(double sampleRate) override;
  std::vector<EffectParameter> parameters() override;

 private:
  std::atomic<float> _cutoff{20};
  FixedFilter _filter;
};

}  // namespace velorin
