// Quantises to a word length with triangular dither, optionally with shaped noise.
//
// Error-feedback filters: S. P. Lipshitz, J. Vanderkooy, R. A. Wannamaker, "Minimally Audible Noise
// Shaping", J. Audio Eng. Soc. 39 (1991).
#pragma once

#include <array>
#include <atomic>

#include "dsp/DSPEffect.h"
#include "dsp/HeldValue.h"
#include "dsp/filters/NoiseGenerator.h"

namespace velorin {

/// What leaves it are floats on the grid of the word length, not clipped: full scale and a little
/// more may come out. Every channel gets noise of its own, also over silence. Of a longer block the
/// frames beyond 65,536 stay as they are; so does all of a block of more than 32 channels when the
/// noise is shaped.
class DitherDSP : public DSPEffect {
 public:
  enum class Algorithm { tpdf, modifiedEWeighted, lipshitz, fWeighted };
  static constexpr std::int64_t kMaxFrames = 65536;

  DitherDSP() : DSPEffect(DSPEffectType::dither) {}

  // Any thread but the render thread.
  /// 2 to 32; the panel offers 16 and 24. From 25 on floats have no room for dither.
  void setTargetBitDepth(double bits) noexcept { _targetBitDepth.set(bits); }
  int targetBitDepth() const noexcept { return _targetBitDepth.get(); }
  /// The past errors stay: while the coefficients change one block may run with a mix of both.
  void setAlgorithm(Algorithm algorithm) noexcept;
  Algorithm algorithm() const noexcept { return _algorithm.load(std::memory_order_relaxed); }

  void process(AudioBufferList& buffers, std::int64_t frameCount,
               double sampleRate) noexcept override;
  std::vector<EffectParameter> parameters() override;

 private:
  static constexpr std::size_t kMaxTaps = 16;
  static constexpr std::uint32_t kMaxChannels = 32;
  static constexpr std::size_t kPiece = 1024;

  /// The errors of past samples, the newest first.
  using History = std::array<float, kMaxTaps>;
  /// A channel's part of a block.
  struct Lane {
    float* data;
    History* history;
    NoiseGenerator noise;
  };

  void processPlain(float* data, std::size_t n, float scale) noexcept;
  void processShaped(AudioBufferList& buffers, std::size_t taps, std::size_t n,
                     float scale) noexcept;
  template <std::size_t kLanes>
  void shape(std::array<Lane, kLanes>& lanes, std::size_t taps, std::size_t n,
             float scale) noexcept;

  HeldValue<int> _targetBitDepth{2, 32, 16};
  std::atomic<Algorithm> _algorithm{Algorithm::tpdf};
  std::array<std::atomic<float>, kMaxTaps> _activeCoeffs{};
  std::atomic<std::size_t> _tapCount{0};  ///< published after the coefficients; 0: plain dither

  // Of the render thread.
  NoiseGenerator _noise{0x12345678};  ///< one for all channels, which draw in turn
  std::array<float, kPiece> _ditherBuf{};
  std::array<History, kMaxChannels> _errors{};
};

}  // namespace velorin
