// How a row of "playlists" becomes a record.
#pragma once

#include "library/sqlite/Statement.h"
#include "records/Playlist.h"

namespace velorin {

sqlite::RowReader& operator>>(sqlite::RowReader& reader, Playlist& playlist);

namespace rows {

/// In the order in which the operator reads them.
inline const std::string kPlaylistColumns =
    "playlists.id, playlists.name, playlists.isSmartPlaylist, playlists.rulesJSON, "
    "playlists.isHidden, playlists.createdAt, playlists.updatedAt";

}  // namespace rows
}  // namespace velorin
