// The sound of a record: surface noise, crackle and a treble that rolls off.
#pragma once

#include <array>
#include <atomic>
#include <optional>

#include "dsp/DSPEffect.h"
#include "dsp/filters/BiquadCascade.h"
#include "dsp/filters/RateState.h"

namespace velorin {

/// All channels get the same noise, after the roll-off of the programme. Of a longer block the
/// frames beyond 65,536 stay as they are. Channels beyond the first share one filter state.
class VinylSimulatorDSP : public DSPEffect {
 public:
  static constexpr std::int64_t kMaxFrames = 65536;

  VinylSimulatorDSP() : DSPEffect(DSPEffectType::vinylSimulator) {}

  // 0 to 1 each. Not the render thread.
  void setNoiseLevel(float level) noexcept { _noiseLevel.store(level, std::memory_order_relaxed); }
  float noiseLevel() const noexcept { return _noiseLevel.load(std::memory_order_relaxed); }
  void setCrackleRate(float rate) noexcept { _crackleRate.store(rate, std::memory_order_relaxed); }
  float crackleRate() const noexcept { return _crackleRate.load(std::memory_order_relaxed); }
  /// Designs the filter anew.
  void setWarmth(float warmth);
  float warmth() const noexcept { return _warmth.load(std::memory_order_relaxed); }

  void process(AudioBufferList& buffers, std::int64_t frameCount,
               double sampleRate) noexcept override;
  void sampleRateChanged(double sampleRate) override;
  std::vector<EffectParameter> parameters() override;

 private:
  struct Filters {
    Filters(std::span<const BiquadCoefficients> warmthSections,
            std::span<const BiquadCoefficients> noiseSections)
        : warmth(warmthSections, 2), noise(noiseSections, 1) {}
    BiquadCascade warmth;
    BiquadCascade noise;
  };
  /// One step of the generator: x 1664525 + 1013904223 modulo 2^32.
  std::uint32_t draw() noexcept {
    _rngState = _rngState * 1664525U + 1013904223U;
    return _rngState;
  }
  void makeNoise(Filters& filters, std::size_t n) noexcept;

  std::atomic<float> _noiseLevel{0.15f};
  std::atomic<float> _crackleRate{0.3f};
  std::atomic<float> _warmth{0.5f};
  RateState<Filters> _filters;

  // Of the render thread.
  std::uint32_t _rngState = 0xDEADBEEF;
  std::vector<float> _noiseBuf = std::vector<float>(kMaxFrames);
  std::vector<float> _crackleBuf = std::vector<float>(kMaxFrames);
};

}  // namespace velorin
