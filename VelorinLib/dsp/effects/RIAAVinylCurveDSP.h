// A fixed curve for digitised records.
#pragma once

#include "dsp/DSPEffect.h"
#include "dsp/effects/FixedFilter.h"

namespace velorin {

/// Shelves at the corners of the three RIAA time constants, 3180, 318 and 75 microseconds (IEC
/// 60098), on every channel. Channels beyond the first share one state. Dry until the first
/// sampleRateChanged().
class RIAAVinylCurveDSP : public DSPEffect {
 public:
  RIAAVinylCurveDSP() : DSPEffect(DSPEffectType::riaaVinylCurve) {}

  void process(AudioBufferList& buffers, std::int64_t frameCount,
               double sampleRate) noexcept override;
  void sampleRateChanged(double sampleRate) override;

 protected:
  FixedFilter _filter;
};

}  // namespace velorin
