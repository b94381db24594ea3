// A gain for the whole programme.
#pragma once

#include <atomic>

#include "dsp/DSPEffect.h"
#include "dsp/HeldValue.h"

namespace velorin {

/// At exactly 0 dB not one bit changes.
class PreAmpDSP : public DSPEffect {
 public:
  PreAmpDSP() : DSPEffect(DSPEffectType::preAmp) {}

  /// dB, -100 to 100. Any thread but the render thread.
  void setGain(double gainDB) noexcept;
  float gain() const noexcept { return _gainDB.get(); }
  /// dB on top of the gain, -100 to 100, for the comparison of two sounds at one loudness: no
  /// setting, and no part of gain().
  void setOffset(double offsetDB) noexcept;
  float offset() const noexcept { return _offsetDB.get(); }

  void process(AudioBufferList& buffers, std::int64_t frameCount,
               double sampleRate) noexcept override;
  std::vector<EffectParameter> parameters() override;

 private:
  void update() noexcept;

  HeldValue<float> _gainDB{-100, 100, 0};
  HeldValue<float> _offsetDB{-100, 100, 0};
  std::atomic<float> _gainLinear{1};  ///< of both; what the render thread reads
};

}  // namespace velorin
