// A cascade that runs on every channel in place: what the filters of fixed structure are made of.
#pragma once

#include <memory>
#include <span>

#include "dsp/effects/Level.h"
#include "dsp/filters/BiquadCascade.h"
#include "dsp/filters/RateState.h"
#include "platform/audio/StreamFormat.h"

namespace velorin {

/// Filters every channel that has data with a cascade of two states: one for the first channel, one
/// for every other, which take turns with it. Real-time safe.
inline void filterChannels(BiquadCascade& cascade, const AudioBufferList& buffers,
                           std::size_t frames) noexcept {
  std::uint32_t next = 0;
  if (const StereoPair pair(buffers); pair.isComplete()) {
    // Two channels at once take the time of one.
    float* const both[] = {pair.left, pair.right};
    cascade.process(both, frames);
    next = 2;
  }
  for (; next < buffers.bufferCount; ++next) {
    auto* data = buffers.channel<float>(next);
    if (data != nullptr) cascade.processChannel(next == 0 ? 0 : 1, data, data, frames);
  }
}

/// Such a cascade for a rate; a new one starts from silence.
class FixedFilter {
 public:
  /// Not the render thread. `sections(rate)` designs; for a new rate, and again for the present
  /// one.
  template <class Sections>
  void designFor(double rate, Sections&& sections) {
    _state.designFor(rate, made(sections));
  }
  template <class Sections>
  void redesign(Sections&& sections) {
    _state.redesign(made(sections));
  }

  /// Render thread. Leaves the block as it is while the filter is being exchanged, and when the
  /// filter is for another rate.
  void process(AudioBufferList& buffers, std::int64_t frameCount, double sampleRate) noexcept {
    if (const auto cascade = _state.use(sampleRate)) {
      filterChannels(*cascade, buffers, static_cast<std::size_t>(frameCount));
    }
  }

  RenderLock& lock() noexcept { return _state.lock(); }

 private:
  template <class Sections>
  static auto made(Sections& sections) {
    return [&sections](double rate) { return std::make_unique<BiquadCascade>(sections(rate), 2); };
  }

  RateState<BiquadCascade> _state;
};

}  // namespace velorin
