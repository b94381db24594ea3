// Which of a stream's frames are the music. Internal to this folder.
#pragma once

#include <cstdint>

#include "engine/decoders/media/BlockDecoder.h"
#include "engine/decoders/media/PacketReader.h"

namespace velorin::media {

/// Encoder delay comes before `begin`; padding from `end` on.
struct SoundSpan {
  std::int64_t begin = 0;
  std::int64_t frames = 0;  ///< 0 when the file does not tell
  bool isBinding = false;   ///< what comes behind is padding, and not to be played
};

/// The first block has been decoded and begins at `firstStamp` (of the container, in frames,
/// AV_NOPTS_VALUE when it has none). May read the file to its end where nothing else tells the
/// length; `movedOn` then says that the reader stands elsewhere.
SoundSpan findSoundSpan(PacketReader& packets, const BlockDecoder& decoder, std::int64_t firstStamp,
                        std::int64_t frameSize, bool& movedOn);

}  // namespace velorin::media
