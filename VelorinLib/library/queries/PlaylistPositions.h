// The positions of the tracks inside a playlist.
#pragma once

#include <cstdint>
#include <limits>
#include <vector>

#include "library/sqlite/Connection.h"

namespace velorin {

/// A row of "playlist_tracks".
struct PlaylistEntry {
  std::int64_t id = 0;
  std::int64_t trackId = 0;
  std::int64_t position = 0;
};

/// The entries of a playlist from a position on, in their order.
std::vector<PlaylistEntry> playlistEntries(
    sqlite::Reader& reader, std::int64_t playlistId,
    std::int64_t from = std::numeric_limits<std::int64_t>::min());

/// Gives entries of a playlist the positions from `first` on, in the order in which they stand
/// here. Those positions must belong to these entries or to nobody. No two rows have one position
/// at any moment, which SQLite would refuse, and only rows that move are written.
void renumber(sqlite::Writer& writer, std::int64_t playlistId,
              const std::vector<PlaylistEntry>& entries, std::int64_t first);

}  // namespace velorin
