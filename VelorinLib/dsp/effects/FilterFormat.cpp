#include "dsp/effects/FilterFormat.h"

namespace velorin {

std::unique_ptr<BiquadCascade> makeCascade(std::span<const BiquadCoefficients> sections,
                                           const FilterFormat& format) {
  if (sections.empty() || !format.isKnown() || format.channels > kMaxFilterChannels) return nullptr;
  return std::make_unique<BiquadCascade>(sections, format.channels);
}

bool channelsOf(const AudioBufferList& buffers, ChannelPointers& out) noexcept {
  if (buffers.bufferCount > out.size()) return false;
  for (std::size_t channel = 0; channel < buffers.bufferCount; ++channel) {
    out[channel] = buffers.channel<float>(channel);
    if (out[channel] == nullptr) return false;
  }
  return true;
}

}  // namespace velorin
