// The one request that reads a TrackInfo: a track that has its album and its artist.
#pragma once

#include "library/rows/TrackRow.h"
#include "library/sqlite/Connection.h"

namespace velorin::rows {

/// Where a TrackInfo comes from, for requests that want other columns of it.
inline const std::string kTrackInfoFrom =
    "\nFROM tracks"
    "\nJOIN albums ON albums.id = tracks.albumId"
    "\nJOIN artists ON artists.id = tracks.artistId";

/// What follows (WHERE, ORDER BY, LIMIT) calls the tables by their names.
inline const std::string kTrackInfoRequest =
    "SELECT " + kTrackColumns + ", " + kAlbumColumns + ", " + kArtistColumns + kTrackInfoFrom;

TrackInfo trackInfoOf(const sqlite::Row& row);

/// The rows of the request with something behind it.
template <class... Arguments>
std::vector<TrackInfo> trackInfos(sqlite::Reader& reader, std::string_view tail,
                                  const Arguments&... arguments) {
  std::vector<TrackInfo> infos;
  reader.each(
      kTrackInfoRequest + std::string(tail),
      [&](const sqlite::Row& row) { infos.push_back(trackInfoOf(row)); }, arguments...);
  return infos;
}

/// The tracks of these ids, in the order of the ids, read in slices. An id without a joined row is
/// passed over.
std::vector<TrackInfo> trackInfosInOrder(sqlite::Reader& reader,
                                         const std::vector<std::int64_t>& ids);

}  // namespace velorin::rows
