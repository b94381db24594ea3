// A soft saturator.
#pragma once

#include <array>

#include "dsp/DSPEffect.h"
#include "dsp/HeldValue.h"

namespace velorin {

/// tanh(g x) / g beside the dry signal, g = 1 + 4 drive: small signals keep their level. Every
/// channel. With no mix not one bit changes. Of a longer block the frames beyond 65,536 stay dry.
class TubeWarmthDSP : public DSPEffect {
 public:
  static constexpr std::int64_t kMaxFrames = 65536;

  TubeWarmthDSP() : DSPEffect(DSPEffectType::tubeWarmth) {}

  // 0 to 1 each. Any thread but the render thread.
  void setDrive(double drive) noexcept { _drive.set(drive); }
  float drive() const noexcept { return _drive.get(); }
  /// Share of the saturated signal.
  void setMix(double mix) noexcept { _mix.set(mix); }
  float mix() const noexcept { return _mix.get(); }

  void process(AudioBufferList& buffers, std::int64_t frameCount,
               double sampleRate) noexcept override;
  std::vector<EffectParameter> parameters() override;

 private:
  // A piece of a block at a time: what is worked on stays in the cache.
  static constexpr std::size_t kPiece = 1024;

  HeldValue<float> _drive{0, 1, 0.3f};
  HeldValue<float> _mix{0, 1, 0.5f};
  std::array<float, kPiece> _drivenBuf{};
};

}  // namespace velorin
