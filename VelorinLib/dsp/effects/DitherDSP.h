// Quantises to a word length with triangular dither, optionally with shaped noise.
//
// Error-feedback filters: S. P. Lipshitz, J. Vanderkooy, R. A. Wannamaker, "Minimally Audible Noise
// Shaping", J. Audio Eng. Soc. 39 (1991).
#pragma once

#include <array>
#include <atomic>

#include "dsp/DSPEffect.h"

namespace velorin {

/// What leaves it are floats on the grid of the word length, not clipped: full scale and a little
/// more may come out. Of a longer block the frames beyond 65,536 stay as they are; so does all of a
/// block of more than 32 channels when the noise is shaped.
class DitherDSP : public DSPEffect {
 public:
  enum class Algorithm { tpdf, modifiedEWeighted, lipshitz, fWeighted };
  static constexpr std::int64_t kMaxFrames = 65536;

  DitherDSP() : DSPEffect(DSPEffectType::dither) {}

  // Any thread but the render thread.
  /// 2 to 32; the panel offers 16 and 24.
  void setTargetBitDepth(int bits) noexcept;
  int targetBitDepth() const noexcept { return _targetBitDepth.load(std::memory_order_relaxed); }
  /// The past errors stay: while the coefficients change one block may run with a mix of both.
  void setAlgorithm(Algorithm algorithm) noexcept;
  Algorithm algorithm() const noexcept { return _algorithm.load(std::memory_order_relaxed); }

  void process(AudioBufferList& buffers, std::int64_t frameCount,
               double sampleRate) noexcept override;
  std::vector<EffectParameter> parameters() override;

 private:
  static constexpr std::size_t kMaxTaps = 16;
  static constexpr std::size_t kHistoryMask = 15;
  static constexpr std::uint32_t kMaxChannels = 32;
  static constexpr std::size_t kPiece = 1024;

  float drawDither() noexcept;
  void processPlain(float* data, std::size_t n, float scale) noexcept;
  void processShaped(std::uint32_t channel, int taps, float* data, std::size_t n,
                     float scale) noexcept;

  std::atomic<int> _targetBitDepth{16};
  std::atomic<Algorithm> _algorithm{Algorithm::tpdf};
  std::array<std::atomic<float>, kMaxTaps> _activeCoeffs{};
  std::atomic<int> _tapCount{0};  ///< published after the coefficients; 0: plain dither

  // Of the render thread.
  std::uint32_t _rngState = 0x12345678;
  std::array<float, kPiece> _ditherBuf{};
  std::array<std::array<float, kHistoryMask + 1>, kMaxChannels> _errorRing{};
  std::array<std::size_t, kMaxChannels> _historyPos{};
};

}  // namespace velorin
