// DSD over PCM: one-bit sound in words that a PCM link carries ("DoP Open Standard" 1.1).
#pragma once

#include <cstdint>
#include <span>

namespace velorin {

/// Packs sixteen one-bit samples of each channel into one 32-bit word per channel:
///
///     bits 31-24  marker, the same for all channels of a frame: 0x05 and 0xFA by turns
///     bits 23-16  the older byte, bits 15-8 the younger one, oldest sample on top
///     bits 7-0    0
///
/// Holds the marker that comes next.
class DoPPacking {
 public:
  /// The flag says that in the bytes given the oldest sample is in the lowest bit.
  explicit DoPPacking(bool isLeastSignificantFirst) noexcept
      : _isLeastSignificantFirst(isLeastSignificantFirst) {}

  /// Packs `frames` frames, interleaved: each channel's 2 * frames bytes lie `stride` bytes behind
  /// those of the channel before it. `words` holds frames * channels.
  void pack(const std::uint8_t* bytes, std::size_t stride, std::size_t channels, std::size_t frames,
            std::int32_t* words) noexcept;

  /// The next frame takes 0x05.
  void reset() noexcept { _isToggled = false; }

 private:
  const bool _isLeastSignificantFirst;
  bool _isToggled = false;
};

}  // namespace velorin
