// A cascade that runs on every channel in place: what the filters of fixed structure are made of.
#pragma once

#include <memory>
#include <span>

#include "dsp/effects/Level.h"
#include "dsp/filters/BiquadCascade.h"
#include "dsp/filters/RateState.h"
#include "platform/audio/StreamFormat.h"

namespace velorin {

/// Two states: one for the first channel, one for every other.
class FixedFilter {
 public:
  /// Not the render thread. Starts from silence.
  void install(std::span<const BiquadCoefficients> sections, double rate) {
    _state.install(std::make_unique<BiquadCascade>(sections, 2), rate);
  }
  double rate() const noexcept { return _state.rate(); }

  // Render thread.
  bool fits(double sampleRate) noexcept { return _state.fits(sampleRate); }
  void invalidate() noexcept { _state.invalidate(); }
  /// Leaves the block as it is when the filter is being exchanged.
  void process(AudioBufferList& buffers, std::int64_t frameCount) noexcept {
    const auto cascade = _state.tryUse();
    if (!cascade) return;
    const auto n = static_cast<std::size_t>(frameCount);
    const auto one = [&](std::uint32_t i) {
      auto* data = buffers.channel<float>(i);
      if (data != nullptr) cascade->processChannel(i == 0 ? 0 : 1, data, data, n);
    };
    std::uint32_t next = 0;
    if (const StereoPair pair(buffers); pair.isComplete()) {
      // Two channels at once take the time of one.
      float* const both[] = {pair.left, pair.right};
      cascade->process(both, n);
      next = 2;
    }
    for (; next < buffers.bufferCount; ++next) one(next);
  }

 private:
  RateState<BiquadCascade> _state;
};

}  // namespace velorin
