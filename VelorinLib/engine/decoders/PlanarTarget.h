// Filling a planar buffer list, for decoders whose library gives something else.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/audio/StreamFormat.h"

namespace velorin::planar {

/// `frames`, or what the smallest buffer of the list holds of samples of that size (bytes).
std::uint32_t framesThatFit(const AudioBufferList& list, std::uint32_t frames,
                            std::size_t sampleSize) noexcept;

/// Zeros the frames from `at` on of the channel `first` and those behind it.
void silence(const AudioBufferList& list, std::uint32_t first, std::uint32_t at,
             std::uint32_t frames, std::size_t sampleSize) noexcept;

/// One channel out of samples that come frame by frame: out[i] = in[i * channels + channel].
template <class Sample>
void takeChannel(const Sample* in, std::uint32_t channels, std::uint32_t channel, Sample* out,
                 std::uint32_t frames) noexcept {
  in += channel;
  for (std::uint32_t i = 0; i < frames; ++i, in += channels) out[i] = *in;
}

}  // namespace velorin::planar
