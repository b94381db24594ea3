// Places the stereo pair at an angle and a distance from the listener.
#pragma once

#include <array>
#include <atomic>

#include "dsp/DSPEffect.h"
#include "dsp/filters/BiquadCascade.h"
#include "dsp/filters/RateState.h"

namespace velorin {

/// Interaural delay and level, a low-pass for the head's shadow on the far ear, and two early
/// reflections. The first two channels; of a longer block the frames beyond 65,536 stay dry. Dry
/// until the first sampleRateChanged().
class SpatialAudioDSP : public DSPEffect {
 public:
  static constexpr std::int64_t kMaxFrames = 65536;

  SpatialAudioDSP() : DSPEffect(DSPEffectType::spatialAudio) {}

  // Not the render thread; one caller at a time.
  /// Degrees, -180 to 180; to the right where positive. Designs the shadow filter anew.
  void setAzimuth(float degrees);
  float azimuth() const noexcept { return _azimuth.load(std::memory_order_relaxed); }
  /// 0 to 1.
  void setRoomSize(float size) noexcept { _roomSize.store(size, std::memory_order_relaxed); }
  float roomSize() const noexcept { return _roomSize.load(std::memory_order_relaxed); }
  /// Metres, 0.5 to 5.
  void setDistance(float metres) noexcept { _distance.store(metres, std::memory_order_relaxed); }
  float distance() const noexcept { return _distance.load(std::memory_order_relaxed); }
  void sampleRateChanged(double sampleRate) override;

  void process(AudioBufferList& buffers, std::int64_t frameCount,
               double sampleRate) noexcept override;
  std::vector<EffectParameter> parameters() override;

 private:
  static constexpr std::size_t kDelaySize = 1024;  // powers of two
  static constexpr std::size_t kReflectionSize = 4096;

  /// One ear's delay line and its place in the room.
  struct Ear {
    std::size_t whole;  ///< delay in samples
    float fraction;
    float gain;
  };
  static Ear ear(double delay, float gain) noexcept;
  void position(float* left, float* right, std::size_t n, float azimuth,
                double sampleRate) noexcept;
  void reflect(float* left, float* right, std::size_t n, double sampleRate) noexcept;

  std::atomic<float> _azimuth{0};
  std::atomic<float> _roomSize{0.3f};
  std::atomic<float> _distance{1};
  RateState<BiquadCascade> _shadow;

  // Of the render thread.
  std::array<float, kDelaySize> _delayBufL{};
  std::array<float, kDelaySize> _delayBufR{};
  std::size_t _writeIndex = 0;
  std::array<float, kReflectionSize> _reflBufL{};
  std::array<float, kReflectionSize> _reflBufR{};
  std::size_t _reflWriteIndex = 0;
};

}  // namespace velorin
