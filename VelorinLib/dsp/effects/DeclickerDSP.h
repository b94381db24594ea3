// Removes clicks and pops of digitised records.
#pragma once

#include <array>
#include <atomic>
#include <vector>

#include "dsp/DSPEffect.h"
#include "dsp/HeldValue.h"

namespace velorin {

/// A sample that lies further from the median of its neighbourhood than a threshold, which follows
/// the level, is part of a click; a run of such samples is replaced by a Catmull-Rom cubic (E.
/// Catmull, R. Rom, "A class of local interpolating splines", 1974) through the good ones around
/// it. No latency: the last samples of a block see a repeat of its end in place of what follows.
/// The first two channels; of a longer block the frames beyond 65,536 stay as they are.
class DeclickerDSP : public DSPEffect {
 public:
  static constexpr std::size_t kMaxFrames = 65536;

  DeclickerDSP();

  // Any thread but the render thread.
  /// Detection factor, 0 to 1000: the lower, the more is a click.
  void setThreshold(double threshold) noexcept { _threshold.set(threshold); }
  float threshold() const noexcept { return _threshold.get(); }
  /// Longest run to repair, in samples, 0 to 65,536; more than 128 counts as 128.
  void setMaxClickLength(double samples) noexcept { _maxClickLength.set(samples); }
  int maxClickLength() const noexcept { return _maxClickLength.get(); }
  /// Share of the repaired signal, 0 to 1.
  void setBlend(double blend) noexcept { _blend.set(blend); }
  float blend() const noexcept { return _blend.get(); }

  /// Calls of process(), and samples marked as clicks, since the program began. Any thread.
  std::uint64_t processCalls() const noexcept {
    return _debugProcessCalls.load(std::memory_order_relaxed);
  }
  std::uint64_t clicksFound() const noexcept {
    return _debugClicksFound.load(std::memory_order_relaxed);
  }

  void process(AudioBufferList& buffers, std::int64_t frameCount,
               double sampleRate) noexcept override;
  std::vector<EffectParameter> parameters() override;

 private:
  static constexpr std::size_t kWindowSize = 21;
  static constexpr std::size_t kHalfWindow = 10;
  using Tail = std::array<float, kWindowSize>;

  struct Settings {
    float threshold;
    float blend;
    std::size_t limit;
  };
  void processChannel(float* data, std::size_t n, Tail& tail, const Settings& settings) noexcept;
  void extend(const float* data, std::size_t n, const Tail& tail) noexcept;
  /// Fills the mask; returns how many samples it marks.
  std::uint64_t detect(const float* data, std::size_t n, float threshold) noexcept;
  void followLevel(std::size_t n) noexcept;
  void repair(const float* data, std::size_t n, std::size_t limit) noexcept;
  void repairSpan(const float* data, std::size_t n, std::size_t start, std::size_t end) noexcept;

  HeldValue<float> _threshold{0, 1000, 3};
  HeldValue<int> _maxClickLength{0, 65536, 48};
  HeldValue<float> _blend{0, 1, 1};
  std::atomic<std::uint64_t> _debugProcessCalls{0};
  std::atomic<std::uint64_t> _debugClicksFound{0};

  // Of the render thread. The tails are the only audio that crosses a block.
  Tail _tailL{};
  Tail _tailR{};
  bool _tailFilled = false;
  std::vector<float> _extendedBuf;  ///< tail, block, and a repeat of the last sample
  std::vector<float> _medianBuf;
  std::vector<float> _deviationBuf;
  std::vector<float> _rmsBuf;
  std::vector<float> _repairBuf;
  std::vector<std::uint8_t> _clickMask;
};

}  // namespace velorin
