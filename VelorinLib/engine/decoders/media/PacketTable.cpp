#include "engine/decoders/media/PacketTable.h"

#include <array>
#include <cstring>

extern "C" {
#include <libavutil/intreadwrite.h>
}

#include "engine/decoders/media/PacketReader.h"

namespace velorin::media {

std::optional<PacketTable> findPacketTable(PacketReader& packets) noexcept {
  constexpr std::uint64_t kFileHeaderBytes = 8;
  constexpr std::uint64_t kChunkHeaderBytes = 12;
  constexpr int kMostChunks = 64;
  std::array<std::byte, 24> bytes{};
  std::uint64_t at = kFileHeaderBytes;
  for (int i = 0; i < kMostChunks && at < packets.size(); ++i) {
    const auto header = std::span(bytes).first(kChunkHeaderBytes);
    if (packets.readBytes(at, header) != kChunkHeaderBytes) break;
    const std::uint64_t size = AV_RB64(bytes.data() + 4);
    at += kChunkHeaderBytes;
    if (std::memcmp(bytes.data(), "pakt", 4) == 0) {
      if (packets.readBytes(at, bytes) != bytes.size()) break;
      return PacketTable{.validFrames = static_cast<std::int64_t>(AV_RB64(bytes.data() + 8)),
                         .primingFrames = std::int64_t{AV_RB32(bytes.data() + 16)},
                         .remainderFrames = std::int64_t{AV_RB32(bytes.data() + 20)}};
    }
    // Of sound that goes on to the end of the file the size is all ones.
    if (size > packets.size() - at) break;
    at += size;
  }
  return std::nullopt;
}

}  // namespace velorin::media
