// Stereo for headphones: each ear hears a delayed, darker, quieter copy of the other side.
#pragma once

#include <array>
#include <atomic>
#include <memory>
#include <span>

#include "dsp/DSPEffect.h"
#include "dsp/HeldValue.h"
#include "dsp/filters/BiquadCascade.h"
#include "dsp/filters/DelayLine.h"
#include "dsp/filters/RateState.h"

namespace velorin {

/// left' = (left + level LP(delay(right))) / (1 + level), and the other way round. LP is a
/// Linkwitz-Riley section of second order; the sum cannot exceed the input's level. At level 0 not
/// one bit changes. The first two channels; blocks of more than 65,536 frames pass dry.
///
/// The setters, formatChanged() and setEnabled(): any thread but the render thread. A new filter
/// goes on with the state of the old one.
class CrossfeedDSP : public DSPEffect {
 public:
  static constexpr std::int64_t kMaxFrames = 65536;

  CrossfeedDSP();

  /// Starts from silence when it is switched on again.
  void setEnabled(bool enabled) noexcept override;

  /// Hz, 20 to 20,000. Left out where it is at or above half the rate.
  void setCutoffFrequency(double hertz);
  double cutoffFrequency() const noexcept { return _cutoffFrequency.get(); }
  /// Linear, 0 to 1.
  void setCrossfeedLevel(double level) noexcept;
  double crossfeedLevel() const noexcept { return _crossfeedLevel.get(); }
  /// Seconds, 0 to 1; never more than 4095 samples.
  void setDelayTime(double seconds);
  double delayTime() const noexcept { return _delayTime.get(); }

  /// The stream's rate, told before output starts. Starts from silence when it is another one.
  void formatChanged(double sampleRate);

  void process(AudioBufferList& buffers, std::int64_t frameCount,
               double sampleRate) noexcept override;
  std::vector<EffectParameter> parameters() override;

 protected:
  /// What is made for one rate.
  struct Design {
    Design(std::span<const BiquadCoefficients> lowPass, FractionalDelay interaural)
        : filter(lowPass, 2), delay(interaural) {}
    BiquadCascade filter;
    FractionalDelay delay;
  };
  RateState<Design> _design;

 private:
  static constexpr std::size_t kLongestDelay = 4095;
  using Line = DelayLine<kLongestDelay + 1>;
  static constexpr std::size_t kPiece = Line::kMaxRun;

  void redesign();
  std::unique_ptr<Design> design(double sampleRate) const;

  HeldValue<double> _cutoffFrequency{20, 20000, 700};
  HeldValue<double> _crossfeedLevel{0, 1, 0.595};
  HeldValue<double> _delayTime{0, 1, 0.00027};
  std::atomic<float> _outputTrim{1};
  std::atomic<float> _crossfeedGain{0};
  std::atomic<bool> _needsReset{false};

  // Of the render thread.
  Line _delayL;
  Line _delayR;
  std::array<float, kPiece> _workBufferL{};
  std::array<float, kPiece> _workBufferR{};
};

}  // namespace velorin
