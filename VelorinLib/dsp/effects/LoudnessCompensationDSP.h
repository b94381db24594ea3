// More bass and treble as the volume falls.
#pragma once

#include <vector>

#include "dsp/DSPEffect.h"
#include "dsp/HeldValue.h"
#include "dsp/effects/FixedFilter.h"

namespace velorin {

/// Shelves at 100 Hz and 10 kHz whose boost grows as the volume falls below the reference; at or
/// above it not one bit changes. Every channel; those beyond the first share one state.
///
/// Dry until the first sampleRateChanged(). The setters design the filter anew; any thread but the
/// render thread, as is sampleRateChanged().
class LoudnessCompensationDSP : public DSPEffect {
 public:
  LoudnessCompensationDSP() : DSPEffect(DSPEffectType::loudnessCompensation) {}

  /// The listening volume, 0 to 1.
  void setVolume(double volume);
  float volume() const noexcept { return _volume.get(); }
  /// The volume at which the boost is zero, 0 to 1.
  void setReferenceLevel(double level);
  float referenceLevel() const noexcept { return _referenceLevel.get(); }
  /// dB at volume 0, 0 to 40.
  void setMaxBassBoostDB(double dB);
  float maxBassBoostDB() const noexcept { return _maxBassBoostDB.get(); }
  void setMaxTrebleBoostDB(double dB);
  float maxTrebleBoostDB() const noexcept { return _maxTrebleBoostDB.get(); }

  /// The share of the largest boosts that is in use, 0 at the reference to 1 at volume 0.
  float boostFactor() const noexcept;

  void process(AudioBufferList& buffers, std::int64_t frameCount,
               double sampleRate) noexcept override;
  void sampleRateChanged(double sampleRate) override;
  std::vector<EffectParameter> parameters() override;

 protected:
  FixedFilter _filter;

 private:
  void change(HeldValue<float>& parameter, double value);
  std::vector<BiquadCoefficients> design(double sampleRate) const;

  HeldValue<float> _referenceLevel{0, 1, 0.8f};
  HeldValue<float> _maxBassBoostDB{0, 40, 12};
  HeldValue<float> _maxTrebleBoostDB{0, 40, 6};
  HeldValue<float> _volume{0, 1, 1};
};

}  // namespace velorin
