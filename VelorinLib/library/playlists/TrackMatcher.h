// Which tracks of the library the paths of a playlist file mean.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "library/playlists/M3UManager.h"
#include "library/sqlite/Connection.h"

namespace velorin {

/// The track of each entry, in their order; nothing where the library has none, see
/// M3UManager::importPlaylist. Exact paths are looked up in slices; for what is left all paths of
/// the library are read once, whatever the number of entries. Of several rows of one path the whole
/// file goes before its CUE tracks. Inside a read of the database.
std::vector<std::optional<std::int64_t>> matchTracks(
    sqlite::Reader& reader, const std::vector<M3UManager::ParsedEntry>& entries);

}  // namespace velorin
