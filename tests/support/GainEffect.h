// The plainest effect: multiplies by a constant.
#pragma once

#include <atomic>
#include <mutex>

#include "dsp/DSPProcessor.h"

namespace velorin::test {

/// Behaves as the real ones do: tries its lock and passes the block dry when it fails.
class GainEffect : public DSPProcessor {
 public:
  explicit GainEffect(float gain, bool enabled = true) : _gain(gain), _enabled(enabled) {}

  std::string_view id() const noexcept override { return "com.velorin.dsp.test.gain"; }
  std::string_view name() const noexcept override { return "Gain"; }
  bool isEnabled() const noexcept override { return _enabled; }
  void setEnabled(bool enabled) noexcept override { _enabled = enabled; }

  void process(AudioBufferList& buffers, std::int64_t frameCount,
               double sampleRate) noexcept override {
    const std::unique_lock hold(_lock, std::try_to_lock);
    if (!hold.owns_lock()) return;
    for (std::uint32_t channel = 0; channel < buffers.bufferCount; ++channel) {
      for (std::int64_t i = 0; i < frameCount; ++i) buffers.channel<float>(channel)[i] *= _gain;
    }
    lastBufferCount = buffers.bufferCount;
    lastRate = sampleRate;
    ++calls;
  }
  void sampleRateChanged(double sampleRate) override { toldRate = sampleRate; }

  std::atomic<int> calls{0};
  std::atomic<std::uint32_t> lastBufferCount{0};
  std::atomic<double> lastRate{0};
  std::atomic<double> toldRate{0};

 private:
  const float _gain;
  std::atomic<bool> _enabled;
  std::mutex _lock;
};

}  // namespace velorin::test
