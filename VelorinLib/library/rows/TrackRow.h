// How a row of "tracks", "albums" or "artists" becomes a record: the one place for each table.
//
// The column lists name the columns with their tables, in the order in which the operators below
// read them into the records.
#pragma once

#include "library/sqlite/Connection.h"
#include "records/TrackInfo.h"

namespace velorin {

sqlite::RowReader& operator>>(sqlite::RowReader& reader, Track& track);
sqlite::RowReader& operator>>(sqlite::RowReader& reader, Album& album);
sqlite::RowReader& operator>>(sqlite::RowReader& reader, Artist& artist);

namespace rows {

inline const std::string kTrackColumns =
    "tracks.id, tracks.title, tracks.trackNumber, tracks.discNumber, tracks.duration, "
    "tracks.filePath, tracks.albumId, tracks.artistId, tracks.sampleRate, tracks.bitDepth, "
    "tracks.channels, tracks.format, tracks.bitRate, tracks.fileSize, tracks.lastModified, "
    "tracks.composer, tracks.conductor, tracks.comment, tracks.lyrics, tracks.genre, tracks.year, "
    "tracks.cueStartTime, tracks.cueEndTime, tracks.replayGainTrackGain, "
    "tracks.replayGainAlbumGain, tracks.replayGainTrackPeak, tracks.replayGainAlbumPeak, "
    "tracks.syncedLyrics, tracks.bookmarks, tracks.rating, tracks.totalPlays, tracks.totalSkips, "
    "tracks.scannedLoudness, tracks.scannedTruePeak, tracks.loudnessScanVersion, "
    "tracks.dynamicRange";
inline const std::string kAlbumColumns =
    "albums.id, albums.title, albums.artistId, albums.year, albums.artworkPath, albums.genre, "
    "albums.worstFormat, albums.accentColorHex";
inline const std::string kArtistColumns = "artists.id, artists.name";

/// Inserts a row with everything that the record holds but its id. Returns the new id.
std::int64_t insert(sqlite::Writer& writer, const Track& track);
std::int64_t insert(sqlite::Writer& writer, const Album& album);
std::int64_t insert(sqlite::Writer& writer, const Artist& artist);

}  // namespace rows
}  // namespace velorin
