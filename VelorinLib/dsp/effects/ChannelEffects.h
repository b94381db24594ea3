// The effects that route channels: balance, swap, phase, mono.
#pragma once

#include <atomic>

#include "dsp/DSPEffect.h"
#include "dsp/HeldValue.h"

namespace velorin {

/// A linear law: the side turned away from fades, the other keeps its level. Stereo and more;
/// further channels stay.
class BalanceDSP : public DSPEffect {
 public:
  BalanceDSP() : DSPEffect(DSPEffectType::balance) {}

  /// -1 (left) to 1 (right). Any thread but the render thread.
  void setBalance(double balance) noexcept { _balance.set(balance); }
  float balance() const noexcept { return _balance.get(); }

  void process(AudioBufferList& buffers, std::int64_t frameCount,
               double sampleRate) noexcept override;
  std::vector<EffectParameter> parameters() override;

 private:
  HeldValue<float> _balance{-1, 1, 0};
};

/// Left becomes right and right left.
class ChannelSwapDSP : public DSPEffect {
 public:
  ChannelSwapDSP() : DSPEffect(DSPEffectType::channelSwap) {}
  void process(AudioBufferList& buffers, std::int64_t frameCount,
               double sampleRate) noexcept override;
};

/// Turns the sign of the left channel, the right one or both.
class PhaseInvertDSP : public DSPEffect {
 public:
  enum class Channel { left, right, both };

  PhaseInvertDSP() : DSPEffect(DSPEffectType::phaseInvert) {}

  void setChannel(Channel channel) noexcept { _channel.store(channel, std::memory_order_relaxed); }
  Channel channel() const noexcept { return _channel.load(std::memory_order_relaxed); }

  void process(AudioBufferList& buffers, std::int64_t frameCount,
               double sampleRate) noexcept override;
  std::vector<EffectParameter> parameters() override;

 private:
  std::atomic<Channel> _channel{Channel::left};
};

/// Left and right become their mean. Further channels stay.
class MonoMixDSP : public DSPEffect {
 public:
  MonoMixDSP() : DSPEffect(DSPEffectType::monoMix) {}
  void process(AudioBufferList& buffers, std::int64_t frameCount,
               double sampleRate) noexcept override;
};

}  // namespace velorin
