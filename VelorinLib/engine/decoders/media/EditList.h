// Which part of its sound an MP4 file wants to be heard. Internal to this folder.
#pragma once

#include <cstdint>
#include <optional>

namespace velorin::media {

class PacketReader;

/// The one edit of a track, in the units in which the file tells it (ISO/IEC 14496-12, 8.6.6).
struct Edit {
  std::int64_t mediaStart = 0;   ///< in ticks of the track
  std::uint64_t duration = 0;    ///< in ticks of the movie, often milliseconds; 0 for to the end
  std::uint32_t movieTicks = 0;  ///< a second
  std::uint32_t trackTicks = 0;  ///< a second
};

/// Of the first track that has sound. Nothing where there is no edit, or more than one.
std::optional<Edit> findEdit(PacketReader& packets);

}  // namespace velorin::media
