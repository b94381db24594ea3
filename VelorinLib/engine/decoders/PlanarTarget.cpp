#include "engine/decoders/PlanarTarget.h"

#include <algorithm>
#include <cstring>

namespace velorin::planar {

std::uint32_t framesThatFit(const AudioBufferList& list, std::uint32_t frames,
                            std::size_t sampleSize) noexcept {
  for (std::uint32_t i = 0; i < list.bufferCount; ++i) {
    frames = std::min(frames, static_cast<std::uint32_t>(list.buffers[i].byteSize / sampleSize));
  }
  return frames;
}

void silence(const AudioBufferList& list, std::uint32_t first, std::uint32_t at,
             std::uint32_t frames, std::size_t sampleSize) noexcept {
  for (std::uint32_t channel = first; channel < list.bufferCount; ++channel) {
    std::memset(list.channel<std::byte>(channel) + at * sampleSize, 0, frames * sampleSize);
  }
}

}  // namespace velorin::planar
