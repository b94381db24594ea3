// More bass and treble as the volume falls.
#pragma once

#include <atomic>

#include "dsp/DSPEffect.h"
#include "dsp/effects/FixedFilter.h"

namespace velorin {

/// Shelves at 100 Hz and 10 kHz whose boost grows as the volume falls below the reference; at or
/// above it not one bit changes. Every channel; those beyond the first share one state.
///
/// The setters design the filter anew; not the render thread, one caller at a time.
class LoudnessCompensationDSP : public DSPEffect {
 public:
  LoudnessCompensationDSP() : DSPEffect(DSPEffectType::loudnessCompensation) {}

  /// The listening volume, 0 to 1.
  void setVolume(float volume);
  float volume() const noexcept { return _volume.load(std::memory_order_relaxed); }
  /// The volume at which the boost is zero.
  void setReferenceLevel(float level);
  float referenceLevel() const noexcept { return _referenceLevel.load(std::memory_order_relaxed); }
  /// dB at volume 0.
  void setMaxBassBoostDB(float dB);
  float maxBassBoostDB() const noexcept { return _maxBassBoostDB.load(std::memory_order_relaxed); }
  void setMaxTrebleBoostDB(float dB);
  float maxTrebleBoostDB() const noexcept {
    return _maxTrebleBoostDB.load(std::memory_order_relaxed);
  }

  /// The share of the largest boosts that is in use, 0 at the reference to 1 at volume 0.
  float boostFactor() const noexcept;

  void process(AudioBufferList& buffers, std::int64_t frameCount,
               double sampleRate) noexcept override;
  void sampleRateChanged(double sampleRate) override;
  std::vector<EffectParameter> parameters() override;

 private:
  std::atomic<float> _referenceLevel{0.8f};
  std::atomic<float> _maxBassBoostDB{12};
  std::atomic<float> _maxTrebleBoostDB{6};
  std::atomic<float> _volume{1};
  FixedFilter _filter;

  // What the filter was designed for.
  std::atomic<float> _appliedVolume{1};
  std::atomic<float> _appliedBassBoost{0};
  std::atomic<float> _appliedTrebleBoost{0};
};

}  // namespace velorin
