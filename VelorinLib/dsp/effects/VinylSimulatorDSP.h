// The sound of a record: surface noise, crackle and a treble that rolls off.
#pragma once

#include <array>
#include <memory>
#include <span>

#include "dsp/DSPEffect.h"
#include "dsp/HeldValue.h"
#include "dsp/filters/BiquadCascade.h"
#include "dsp/filters/NoiseGenerator.h"
#include "dsp/filters/RateState.h"

namespace velorin {

/// All channels get the same noise, after the roll-off of the programme. Of a longer block the
/// frames beyond 65,536 stay as they are. Channels beyond the first share one filter state. Dry
/// until the first sampleRateChanged(). With all at 0 not one bit changes.
///
/// The setters and sampleRateChanged(): any thread but the render thread.
class VinylSimulatorDSP : public DSPEffect {
 public:
  static constexpr std::int64_t kMaxFrames = 65536;

  VinylSimulatorDSP() : DSPEffect(DSPEffectType::vinylSimulator) {}

  // 0 to 1 each.
  void setNoiseLevel(double level) noexcept { _noiseLevel.set(level); }
  float noiseLevel() const noexcept { return _noiseLevel.get(); }
  void setCrackleRate(double rate) noexcept { _crackleRate.set(rate); }
  float crackleRate() const noexcept { return _crackleRate.get(); }
  /// Designs the filter anew.
  void setWarmth(double warmth);
  float warmth() const noexcept { return _warmth.get(); }

  void process(AudioBufferList& buffers, std::int64_t frameCount,
               double sampleRate) noexcept override;
  void sampleRateChanged(double sampleRate) override;
  std::vector<EffectParameter> parameters() override;

 protected:
  struct Filters {
    Filters(std::span<const BiquadCoefficients> warmthSections,
            std::span<const BiquadCoefficients> noiseSections)
        : warmth(warmthSections, 2), noise(noiseSections, 1) {}
    BiquadCascade warmth;
    BiquadCascade noise;
  };
  RateState<Filters> _filters;

 private:
  static constexpr std::size_t kPiece = 1024;

  std::unique_ptr<Filters> design(double sampleRate) const;

  HeldValue<float> _noiseLevel{0, 1, 0.15f};
  HeldValue<float> _crackleRate{0, 1, 0.3f};
  HeldValue<float> _warmth{0, 1, 0.5f};

  // Of the render thread.
  NoiseGenerator _generator{0xDEADBEEF};
  std::array<float, kPiece> _noiseBuf{};
  std::array<float, kPiece> _crackleBuf{};
};

}  // namespace velorin
