// What the first frame of an MP3 file tells of its length. Internal to this folder.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace velorin::media {

/// The frame that encoders put ahead of the sound: Xing's counts and, behind them, LAME's gaps.
struct InfoTag {
  std::uint32_t frames = 0;   ///< MP3 frames behind this one; 0 when not told
  std::uint32_t bytes = 0;    ///< from this frame's first byte to the last of the sound; likewise
  std::uint32_t delay = 0;    ///< samples that the encoder put ahead of the sound
  std::uint32_t padding = 0;  ///< and behind it
  bool hasGaps = false;       ///< delay and padding are told
};

/// Samples by which a decoder is late: they come ahead of the encoder's delay.
inline constexpr std::int64_t kMP3DecoderDelay = 529;

/// Looks for the tag in what comes before the first frame of sound. The layout is that of the "Mp3
/// Info Tag rev 1" specification of the LAME project.
std::optional<InfoTag> findInfoTag(std::span<const std::byte> head) noexcept;

}  // namespace velorin::media
