// Narrows or widens the stereo image.
#pragma once

#include <array>
#include <atomic>

#include "dsp/DSPEffect.h"
#include "dsp/filters/BiquadCascade.h"
#include "foundation/RenderLock.h"

namespace velorin {

/// The first two channels. At width 1 not one bit changes, whatever the algorithm. The modes
/// mid/side and frequency dependent pass blocks of more than 8192 frames dry.
class StereoWidenerDSP : public DSPEffect {
 public:
  enum class Algorithm {
    midSide,             ///< mixes the sides in or out
    haas,                ///< delays one side by up to 0.8 ms
    frequencyDependent,  ///< mid/side above 300 Hz
  };

  StereoWidenerDSP();

  // Not the render thread; one caller at a time.
  void setEnabled(bool enabled) noexcept override;
  /// 0 (mono) to 2; 1 is no change.
  void setWidth(float width) noexcept { _width.store(width, std::memory_order_relaxed); }
  float width() const noexcept { return _width.load(std::memory_order_relaxed); }
  void setAlgorithm(Algorithm algorithm);
  Algorithm algorithm() const noexcept { return _algorithm.load(std::memory_order_relaxed); }
  void sampleRateChanged(double sampleRate) override;

  void process(AudioBufferList& buffers, std::int64_t frameCount,
               double sampleRate) noexcept override;
  std::vector<EffectParameter> parameters() override;

 private:
  static constexpr std::size_t kMaxFrames = 8192;
  static constexpr std::size_t kHaasSize = 256;  // a power of two

  void reset() noexcept REQUIRES(_lock);
  void midSide(float* left, float* right, std::size_t n, float w) noexcept;
  void haas(float* delayed, std::size_t n, float w, double sampleRate) noexcept;
  void frequencyDependent(float* left, float* right, std::size_t n, float w) noexcept
      REQUIRES(_lock);

  std::atomic<float> _width{1};
  std::atomic<Algorithm> _algorithm{Algorithm::midSide};
  std::atomic<bool> _needsReset{false};
  std::atomic<double> _lastSampleRate{44100};
  std::atomic<bool> _needsRebuild{true};

  RenderLock _lock;
  std::unique_ptr<BiquadCascade> _lpBiquadSetup GUARDED_BY(_lock);

  // Of the render thread.
  std::array<float, kHaasSize> _haasDelayBuffer{};
  std::size_t _haasWriteIndex = 0;
  std::array<float, kMaxFrames> _tempL{};
  std::array<float, kMaxFrames> _tempR{};
};

}  // namespace velorin
