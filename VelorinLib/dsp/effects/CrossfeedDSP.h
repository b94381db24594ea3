// Stereo for headphones: each ear hears a delayed, darker, quieter copy of the other side.
#pragma once

#include <array>
#include <atomic>
#include <memory>

#include "dsp/DSPEffect.h"
#include "dsp/filters/BiquadCascade.h"
#include "dsp/filters/RateState.h"

namespace velorin {

/// left' = (left + level LP(delay(right))) / (1 + level), and the other way round. LP is a
/// Linkwitz-Riley section of second order; the sum cannot exceed the input's level. The first two
/// channels; blocks of more than 65,536 frames pass dry.
///
/// The setters, formatChanged() and setEnabled(): any thread but the render thread, one caller at a
/// time.
class CrossfeedDSP : public DSPEffect {
 public:
  static constexpr std::int64_t kMaxFrames = 65536;

  CrossfeedDSP();

  void setEnabled(bool enabled) noexcept override;

  void setCutoffFrequency(double hertz);
  double cutoffFrequency() const noexcept { return _cutoffFrequency; }
  /// Linear, 0 to 1.
  void setCrossfeedLevel(double level) noexcept;
  double crossfeedLevel() const noexcept { return _crossfeedLevel; }
  /// Seconds; at most 4095 samples.
  void setDelayTime(double seconds);
  double delayTime() const noexcept { return _delayTime; }

  /// The stream's rate, told before output starts. Starts from silence when it is another one.
  void formatChanged(double sampleRate);

  void process(AudioBufferList& buffers, std::int64_t frameCount,
               double sampleRate) noexcept override;
  std::vector<EffectParameter> parameters() override;

 private:
  static constexpr std::size_t kDelaySize = 4096;  // a power of two
  static constexpr std::size_t kPiece = 1024;
  using Ring = std::array<float, kDelaySize>;

  /// What is made for one rate; the filter's state goes on in the next.
  struct Design {
    Design(const BiquadCoefficients& lowPass, std::size_t offset, float part)
        : filter({&lowPass, 1}, 2), delayReadOffset(offset), delayFraction(part) {}
    BiquadCascade filter;
    std::size_t delayReadOffset;  ///< whole samples
    float delayFraction;
  };

  void redesign();
  void reset(Design& design) noexcept;
  void delay(const Design& design, const float* in, Ring& ring, float* out,
             std::size_t count) const noexcept;

  // Of the setters.
  std::atomic<double> _cutoffFrequency{700};
  std::atomic<double> _crossfeedLevel{0.595};
  std::atomic<double> _delayTime{0.00027};
  double _currentSampleRate = 44100;

  RateState<Design> _design;
  std::atomic<float> _outputTrim{1};
  std::atomic<float> _crossfeedGain{0};
  std::atomic<bool> _needsReset{false};

  // Of the render thread.
  Ring _delayBufferL{};
  Ring _delayBufferR{};
  std::size_t _delayWriteIndex = 0;
  std::array<float, kPiece> _workBufferL{};
  std::array<float, kPiece> _workBufferR{};
};

}  // namespace velorin
