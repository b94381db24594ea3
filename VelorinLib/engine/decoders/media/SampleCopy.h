// Decoded samples of any format to the planes of a target. Internal to this folder.
#pragma once

#include <cstdint>

#include "platform/audio/StreamFormat.h"

struct AVFrame;

namespace velorin::media {

/// What the words of a target hold: see FillThreadDecoder::read().
enum class TargetWord { float32, int16, int32 };

/// Copies `count` frames of a block, from its frame `from` on, to frame `at` of the first
/// `channels` planes. Channels that the block lacks become silence, those it has beyond are left
/// out. Integers keep their bits at the top of the word; floats keep what is beyond full scale, and
/// on their way to integers are rounded to nearest and held at its ends. False for a sample format
/// that is none of sound.
bool copySamples(const AVFrame& block, std::int64_t from, const AudioBufferList& target,
                 std::uint32_t channels, std::uint32_t at, std::uint32_t count,
                 TargetWord word) noexcept;

}  // namespace velorin::media
