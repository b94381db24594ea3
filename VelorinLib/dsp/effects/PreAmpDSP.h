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

  void process(AudioBufferList& buffers, std::int64_t frameCount,
               double sampleRate) noexcept override;
  std::vector<EffectParameter> parameters() override;

 private:
  // Two words: for one block the render thread may see a new one and an old one.
  HeldValue<float> _gainDB{-100, 100, 0};
  std::atomic<float> _gainLinear{1};
};

}  // namespace velorin
