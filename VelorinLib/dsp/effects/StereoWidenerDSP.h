// Narrows or widens the stereo image.
#pragma once

#include <array>
#include <atomic>

#include "dsp/DSPEffect.h"
#include "dsp/HeldValue.h"
#include "dsp/filters/BiquadCascade.h"
#include "dsp/filters/DelayLine.h"
#include "dsp/filters/RateState.h"

namespace velorin {

/// The first two channels. At width 1 not one bit changes, whatever the algorithm. The modes
/// mid/side and frequency dependent pass blocks of more than 8192 frames dry.
///
/// The setters, sampleRateChanged() and setEnabled(): any thread but the render thread. Until the
/// first sampleRateChanged() it is ready for 44.1 kHz.
class StereoWidenerDSP : public DSPEffect {
 public:
  enum class Algorithm {
    midSide,             ///< mixes the sides in or out
    haas,                ///< delays one side by up to 0.8 ms
    frequencyDependent,  ///< mid/side above 300 Hz
  };
  static constexpr std::size_t kMaxFrames = 8192;

  StereoWidenerDSP();

  /// Starts from silence when it is switched on again.
  void setEnabled(bool enabled) noexcept override;
  /// 0 (mono) to 2; 1 is no change.
  void setWidth(double width) noexcept { _width.set(width); }
  float width() const noexcept { return _width.get(); }
  /// Designs the crossover anew.
  void setAlgorithm(Algorithm algorithm);
  Algorithm algorithm() const noexcept { return _algorithm.load(std::memory_order_relaxed); }
  void sampleRateChanged(double sampleRate) override;

  void process(AudioBufferList& buffers, std::int64_t frameCount,
               double sampleRate) noexcept override;
  std::vector<EffectParameter> parameters() override;

 protected:
  /// The low-pass of the crossover.
  RateState<BiquadCascade> _crossover;

 private:
  static constexpr std::size_t kHaasSize = 256;  // a power of two
  using HaasLine = DelayLine<kHaasSize>;
  static constexpr std::size_t kPiece = HaasLine::kMaxRun;

  /// Shares of the own side and of the other one.
  struct Gains {
    float own;
    float other;
  };
  void midSide(float* left, float* right, std::size_t count, Gains gains) noexcept;
  void haas(float* delayed, std::size_t n, float width, double sampleRate) noexcept;
  void frequencyDependent(BiquadCascade& lowPass, float* left, float* right, std::size_t count,
                          Gains gains) noexcept;

  HeldValue<float> _width{0, 2, 1};
  std::atomic<Algorithm> _algorithm{Algorithm::midSide};
  std::atomic<bool> _needsReset{false};

  // Of the render thread.
  HaasLine _haasDelay;
  std::array<float, kPiece> _tempL{};
  std::array<float, kPiece> _tempR{};
};

}  // namespace velorin
