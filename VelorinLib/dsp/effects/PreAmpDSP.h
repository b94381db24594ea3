// A gain for the whole programme.
#pragma once

#include <atomic>

#include "dsp/DSPEffect.h"

namespace velorin {

/// At exactly 0 dB not one bit changes.
class PreAmpDSP : public DSPEffect {
 public:
  PreAmpDSP() : DSPEffect(DSPEffectType::preAmp) {}

  /// dB. Any thread but the render thread.
  void setGain(float gainDB) noexcept;
  float gain() const noexcept { return _gainDB.load(std::memory_order_relaxed); }

  void process(AudioBufferList& buffers, std::int64_t frameCount,
               double sampleRate) noexcept override;
  std::vector<EffectParameter> parameters() override;

 private:
  // Two words: for one block the render thread may see a new one and an old one.
  std::atomic<float> _gainDB{0};
  std::atomic<float> _gainLinear{1};
};

}  // namespace velorin
