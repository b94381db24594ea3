// A high-pass against rumble and DC.
#pragma once

#include <vector>

#include "dsp/DSPEffect.h"
#include "dsp/HeldValue.h"
#include "dsp/effects/FixedFilter.h"

namespace velorin {

/// A Butterworth section of second order on every channel. Channels beyond the first share one
/// state. Dry until the first sampleRateChanged().
class SubsonicFilterDSP : public DSPEffect {
 public:
  SubsonicFilterDSP() : DSPEffect(DSPEffectType::subsonicFilter) {}

  /// Hz, 1 to 1000. Designs the filter anew. Any thread but the render thread, as is
  /// sampleRateChanged().
  void setCutoff(double cutoff);
  float cutoff() const noexcept { return _cutoff.get(); }

  void process(AudioBufferList& buffers, std::int64_t frameCount,
               double sampleRate) noexcept override;
  void sampleRateChanged(double sampleRate) override;
  std::vector<EffectParameter> parameters() override;

 protected:
  FixedFilter _filter;

 private:
  std::vector<BiquadCoefficients> design(double sampleRate) const;

  HeldValue<float> _cutoff{1, 1000, 20};
};

}  // namespace velorin
