#include "dsp/effects/ChannelEffects.h"

#include <algorithm>

#include "dsp/effects/Level.h"

namespace velorin {

void BalanceDSP::process(AudioBufferList& buffers, std::int64_t frameCount,
                         double /*sampleRate*/) noexcept {
  const float towards = balance();
  if (buffers.bufferCount < 2 || towards == 0 || frameCount < 1) return;
  const float factors[2] = {towards > 0 ? 1 - towards : 1, towards < 0 ? 1 + towards : 1};
  for (std::uint32_t i = 0; i < 2; ++i) {
    auto* data = buffers.channel<float>(i);
    if (data == nullptr) continue;
    vector::multiplyByScalar(data, factors[i], data, static_cast<std::size_t>(frameCount));
  }
}

std::vector<EffectParameter> BalanceDSP::parameters() {
  return {{.name = "balance",
           .minimum = -1,
           .maximum = 1,
           .defaultValue = 0,
           .get = [this] { return balance(); },
           .set = [this](double value) { setBalance(value); }}};
}

void ChannelSwapDSP::process(AudioBufferList& buffers, std::int64_t frameCount,
                             double /*sampleRate*/) noexcept {
  const StereoPair pair(buffers);
  if (!pair.isComplete() || frameCount < 1) return;
  vector::swap(pair.left, pair.right, static_cast<std::size_t>(frameCount));
}

void PhaseInvertDSP::process(AudioBufferList& buffers, std::int64_t frameCount,
                             double /*sampleRate*/) noexcept {
  if (frameCount < 1) return;
  const auto invert = [&](std::uint32_t index) {
    auto* data = index < buffers.bufferCount ? buffers.channel<float>(index) : nullptr;
    if (data != nullptr) vector::negate(data, data, static_cast<std::size_t>(frameCount));
  };
  const Channel which = channel();
  if (which != Channel::right) invert(0);
  if (which != Channel::left) invert(1);
}

std::vector<EffectParameter> PhaseInvertDSP::parameters() {
  return {{.name = "channel",
           .minimum = 0,
           .maximum = 2,
           .defaultValue = 0,
           .choices = {"left", "right", "both"},
           .get = [this] { return static_cast<double>(channel()); },
           .set = [this](double value) { setChannel(choiceOf(value, Channel::both)); }}};
}

void MonoMixDSP::process(AudioBufferList& buffers, std::int64_t frameCount,
                         double /*sampleRate*/) noexcept {
  const StereoPair pair(buffers);
  if (!pair.isComplete() || frameCount < 1) return;
  const auto count = static_cast<std::size_t>(frameCount);
  vector::add(pair.left, pair.right, pair.left, count);
  vector::multiplyByScalar(pair.left, 0.5f, pair.left, count);
  std::copy_n(pair.left, count, pair.right);
}

}  // namespace velorin
