#include "library/rows/TrackRow.h"

namespace velorin::rows {

const std::string kTrackColumns =
    "tracks.id, tracks.title, tracks.trackNumber, tracks.discNumber, tracks.duration, "
    "tracks.filePath, tracks.albumId, tracks.artistId, tracks.sampleRate, tracks.bitDepth, "
    "tracks.channels, tracks.format, tracks.bitRate, tracks.fileSize, tracks.lastModified, "
    "tracks.composer, tracks.conductor, tracks.comment, tracks.lyrics, tracks.genre, tracks.year, "
    "tracks.cueStartTime, tracks.cueEndTime, tracks.replayGainTrackGain, "
    "tracks.replayGainAlbumGain, tracks.replayGainTrackPeak, tracks.replayGainAlbumPeak, "
    "tracks.syncedLyrics, tracks.bookmarks, tracks.rating, tracks.totalPlays, tracks.totalSkips, "
    "tracks.scannedLoudness, tracks.scannedTruePeak, tracks.loudnessScanVersion, "
    "tracks.dynamicRange";

sqlite::RowReader& operator>>(sqlite::RowReader& reader, Track& track) {
  std::optional<std::string> bookmarks;
  reader >> track.id >> track.title >> track.trackNumber >> track.discNumber >> track.duration >>
      track.filePath >> track.albumId >> track.artistId >> track.sampleRate >> track.bitDepth >>
      track.channels >> track.format >> track.bitRate >> track.fileSize >> track.lastModified >>
      track.composer >> track.conductor >> track.comment >> track.lyrics >> track.genre >>
      track.year >> track.cueStartTime >> track.cueEndTime >> track.replayGainTrackGain >>
      track.replayGainAlbumGain >> track.replayGainTrackPeak >> track.replayGainAlbumPeak >>
      track.syncedLyrics >> bookmarks >> track.rating >> track.totalPlays >> track.totalSkips >>
      track.scannedLoudness >> track.scannedTruePeak >> track.loudnessScanVersion >>
      track.dynamicRange;
  if (bookmarks) track.bookmarks = bookmarksFromJSON(*bookmarks);
  return reader;
}

const std::string kAlbumColumns =
    "albums.id, albums.title, albums.artistId, albums.year, albums.artworkPath, albums.genre, "
    "albums.worstFormat, albums.accentColorHex";

sqlite::RowReader& operator>>(sqlite::RowReader& reader, Album& album) {
  return reader >> album.id >> album.title >> album.artistId >> album.year >> album.artworkPath >>
         album.genre >> album.worstFormat >> album.accentColorHex;
}

const std::string kArtistColumns = "artists.id, artists.name";

sqlite::RowReader& operator>>(sqlite::RowReader& reader, Artist& artist) {
  return reader >> artist.id >> artist.name;
}

}  // namespace velorin::rows
