#include "library/rows/TrackRow.h"

namespace velorin {

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

sqlite::RowReader& operator>>(sqlite::RowReader& reader, Album& album) {
  return reader >> album.id >> album.title >> album.artistId >> album.year >> album.artworkPath >>
         album.genre >> album.worstFormat >> album.accentColorHex;
}

sqlite::RowReader& operator>>(sqlite::RowReader& reader, Artist& artist) {
  return reader >> artist.id >> artist.name;
}

namespace rows {

std::int64_t insert(sqlite::Writer& writer, const Track& track) {
  std::optional<std::string> bookmarks;
  if (track.bookmarks && !track.bookmarks->empty()) bookmarks = toJSON(*track.bookmarks);
  writer.run(
      "INSERT INTO tracks (title, trackNumber, discNumber, duration, filePath, albumId, artistId, "
      "sampleRate, bitDepth, channels, format, bitRate, fileSize, lastModified, composer, "
      "conductor, comment, lyrics, genre, year, cueStartTime, cueEndTime, replayGainTrackGain, "
      "replayGainAlbumGain, replayGainTrackPeak, replayGainAlbumPeak, syncedLyrics, bookmarks, "
      "rating, totalPlays, totalSkips, scannedLoudness, scannedTruePeak, loudnessScanVersion, "
      "dynamicRange) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, "
      "?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)",
      track.title, track.trackNumber, track.discNumber, track.duration, track.filePath,
      track.albumId, track.artistId, track.sampleRate, track.bitDepth, track.channels, track.format,
      track.bitRate, track.fileSize, track.lastModified, track.composer, track.conductor,
      track.comment, track.lyrics, track.genre, track.year, track.cueStartTime, track.cueEndTime,
      track.replayGainTrackGain, track.replayGainAlbumGain, track.replayGainTrackPeak,
      track.replayGainAlbumPeak, track.syncedLyrics, bookmarks, track.rating, track.totalPlays,
      track.totalSkips, track.scannedLoudness, track.scannedTruePeak, track.loudnessScanVersion,
      track.dynamicRange);
  return writer.lastInsertedId();
}

std::int64_t insert(sqlite::Writer& writer, const Album& album) {
  writer.run(
      "INSERT INTO albums (title, artistId, year, artworkPath, genre, worstFormat, "
      "accentColorHex) VALUES (?, ?, ?, ?, ?, ?, ?)",
      album.title, album.artistId, album.year, album.artworkPath, album.genre, album.worstFormat,
      album.accentColorHex);
  return writer.lastInsertedId();
}

std::int64_t insert(sqlite::Writer& writer, const Artist& artist) {
  writer.run("INSERT INTO artists (name) VALUES (?)", artist.name);
  return writer.lastInsertedId();
}

}  // namespace rows
}  // namespace velorin
