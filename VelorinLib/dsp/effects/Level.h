// Decibels, and gains over all channels of a block.
#pragma once

#include <cmath>
#include <cstdint>

#include "platform/audio/StreamFormat.h"
#include "platform/vector/Vector.h"

namespace velorin {

/// 10^(dB / 20)
inline float linearGain(float decibels) noexcept {
  return static_cast<float>(std::pow(10.0, static_cast<double>(decibels) / 20));
}

/// Multiplies every channel that has data. Real-time safe.
inline void multiplyChannels(AudioBufferList& buffers, float gain,
                             std::int64_t frameCount) noexcept {
  if (frameCount < 1) return;
  for (std::uint32_t i = 0; i < buffers.bufferCount; ++i) {
    auto* data = buffers.channel<float>(i);
    if (data == nullptr) continue;
    vector::multiplyByScalar(data, gain, data, static_cast<std::size_t>(frameCount));
  }
}

/// Left and right of a block; null where the block has no such channel or no data for it.
struct StereoPair {
  explicit StereoPair(const AudioBufferList& buffers) noexcept
      : left(buffers.bufferCount > 1 ? buffers.channel<float>(0) : nullptr),
        right(buffers.bufferCount > 1 ? buffers.channel<float>(1) : nullptr) {}

  bool isComplete() const noexcept { return left != nullptr && right != nullptr; }

  float* left;
  float* right;
};

}  // namespace velorin
