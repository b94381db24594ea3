// What the effects that are made of a filter cascade have in common: a cascade belongs to a format.
#pragma once

#include <array>
#include <cmath>
#include <cstddef>
#include <memory>
#include <span>

#include "dsp/filters/BiquadCascade.h"
#include "platform/audio/StreamFormat.h"

namespace velorin {

/// What such an effect is told of the stream.
struct FilterFormat {
  double sampleRate = 0;  ///< Hz
  std::size_t channels = 0;

  bool isKnown() const noexcept { return sampleRate > 0 && channels >= 1; }

  /// Rates that differ by 1 Hz or less are one.
  bool fits(const FilterFormat& other) const noexcept {
    return std::fabs(sampleRate - other.sampleRate) <= 1.0 && channels == other.channels;
  }
};

/// Streams of more channels are left alone.
inline constexpr std::size_t kMaxFilterChannels = 32;
using ChannelPointers = std::array<float*, kMaxFilterChannels>;

/// None when there is nothing to run: no sections, an unknown format or too many channels. Not the
/// render thread.
std::unique_ptr<BiquadCascade> makeCascade(std::span<const BiquadCoefficients> sections,
                                           const FilterFormat& format);

/// The buffers of a list of at most kMaxFilterChannels; false when one of them is missing.
bool channelsOf(const AudioBufferList& buffers, ChannelPointers& out) noexcept;

}  // namespace velorin
