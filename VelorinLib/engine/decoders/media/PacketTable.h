// What a CAF file tells of its encoder's gaps. Internal to this folder.
#pragma once

#include <cstdint>
#include <optional>

namespace velorin::media {

class PacketReader;

/// The head of the packet table (Core Audio Format specification 1.0, "Packet Table Chunk").
struct PacketTable {
  std::int64_t validFrames = 0;    ///< without the gaps
  std::int64_t primingFrames = 0;  ///< ahead of the sound
  std::int64_t remainderFrames = 0;
};

/// Nothing where there is none within the first chunks.
std::optional<PacketTable> findPacketTable(PacketReader& packets) noexcept;

}  // namespace velorin::media
