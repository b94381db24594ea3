// Places the stereo pair at an angle and a distance from the listener.
#pragma once

#include <memory>

#include "dsp/DSPEffect.h"
#include "dsp/HeldValue.h"
#include "dsp/filters/BiquadCascade.h"
#include "dsp/filters/DelayLine.h"
#include "dsp/filters/RateState.h"

namespace velorin {

/// Interaural delay and level, a low-pass for the head's shadow on the far ear, and two early
/// reflections. The first two channels; of a longer block the frames beyond 65,536 stay dry. Dry
/// until the first sampleRateChanged(). Straight ahead, at 1 m and without a room, not one bit
/// changes.
///
/// The setters and sampleRateChanged(): any thread but the render thread.
class SpatialAudioDSP : public DSPEffect {
 public:
  static constexpr std::int64_t kMaxFrames = 65536;

  SpatialAudioDSP() : DSPEffect(DSPEffectType::spatialAudio) {}

  /// Degrees, -180 to 180; to the right where positive. Designs the shadow filter anew.
  void setAzimuth(double degrees);
  float azimuth() const noexcept { return _azimuth.get(); }
  /// 0 to 1.
  void setRoomSize(double size) noexcept { _roomSize.set(size); }
  float roomSize() const noexcept { return _roomSize.get(); }
  /// Metres, 0.5 to 1000.
  void setDistance(double metres) noexcept { _distance.set(metres); }
  float distance() const noexcept { return _distance.get(); }
  void sampleRateChanged(double sampleRate) override;

  void process(AudioBufferList& buffers, std::int64_t frameCount,
               double sampleRate) noexcept override;
  std::vector<EffectParameter> parameters() override;

 protected:
  RateState<BiquadCascade> _shadow;

 private:
  static constexpr std::size_t kDelaySize = 1024;
  static constexpr std::size_t kReflectionSize = 4096;

  /// What becomes of one ear's signal.
  struct Ear {
    FractionalDelay delay;
    float gain;      ///< of the ear
    float distance;  ///< gain of the distance
  };
  static Ear ear(double samples, float gain, float distance) noexcept;
  static void position(DelayLine<kDelaySize>& line, const Ear& ear, float* data,
                       std::size_t n) noexcept;
  void reflect(float* left, float* right, std::size_t n, float room, double sampleRate) noexcept;

  std::unique_ptr<BiquadCascade> design(double sampleRate) const;

  HeldValue<float> _azimuth{-180, 180, 0};
  HeldValue<float> _roomSize{0, 1, 0.3f};
  HeldValue<float> _distance{0.5f, 1000, 1};

  // Of the render thread; they keep what they hold while the effect is off.
  DelayLine<kDelaySize> _delayL;
  DelayLine<kDelaySize> _delayR;
  DelayLine<kReflectionSize> _reflectionL;
  DelayLine<kReflectionSize> _reflectionR;
};

}  // namespace velorin
