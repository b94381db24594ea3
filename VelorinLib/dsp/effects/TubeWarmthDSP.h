// A soft saturator.
#pragma once

#include <array>
#include <atomic>

#include "dsp/DSPEffect.h"

namespace velorin {

/// tanh(g x) / g beside the dry signal, g = 1 + 4 drive: small signals keep their level. Every
/// channel. Of a longer block the frames beyond 65,536 stay dry.
class TubeWarmthDSP : public DSPEffect {
 public:
  static constexpr std::int64_t kMaxFrames = 65536;

  TubeWarmthDSP() : DSPEffect(DSPEffectType::tubeWarmth) {}

  // 0 to 1 each. Any thread but the render thread.
  void setDrive(float drive) noexcept { _drive.store(drive, std::memory_order_relaxed); }
  float drive() const noexcept { return _drive.load(std::memory_order_relaxed); }
  void setMix(float mix) noexcept { _mix.store(mix, std::memory_order_relaxed); }
  float mix() const noexcept { return _mix.load(std::memory_order_relaxed); }

  void process(AudioBufferList& buffers, std::int64_t frameCount,
               double sampleRate) noexcept override;
  std::vector<EffectParameter> parameters() override;

 private:
  // A piece of a block at a time: what is worked on stays in the cache.
  static constexpr std::size_t kPiece = 1024;

  std::atomic<float> _drive{0.3f};
  std::atomic<float> _mix{0.5f};
  std::array<float, kPiece> _drivenBuf{};
};

}  // namespace velorin
