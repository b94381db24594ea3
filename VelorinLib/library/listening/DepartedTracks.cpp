#include "library/listening/DepartedTracks.h"

#include <chrono>

namespace velorin {
namespace {

using sqlite::Writer;

constexpr const char* kParkTracks = R"(
INSERT INTO departedTracks (
    trackId, filePath, cueStartTime, fileSize, duration, title, artistName, albumTitle, totalPlays,
    totalSkips, rating, bookmarks, syncedLyrics, soundHash, soundFileSize, soundLastModified,
    departedAt)
SELECT t.id, t.filePath, t.cueStartTime, t.fileSize, t.duration, t.title, COALESCE(ar.name, ''),
       COALESCE(al.title, ''), t.totalPlays, t.totalSkips, t.rating, t.bookmarks, t.syncedLyrics,
       s.soundHash, s.fileSize, s.lastModified, ?
FROM tracks t
LEFT JOIN albums al ON al.id = t.albumId
LEFT JOIN artists ar ON ar.id = t.artistId
LEFT JOIN trackSounds s ON s.trackId = t.id
WHERE {} AND (
    t.totalPlays > 0 OR t.totalSkips > 0 OR t.rating IS NOT NULL OR t.bookmarks IS NOT NULL
    OR t.syncedLyrics IS NOT NULL
    OR EXISTS (SELECT 1 FROM playbackHistory WHERE trackId = t.id)
    OR EXISTS (SELECT 1 FROM playlist_tracks WHERE trackId = t.id)
    OR EXISTS (SELECT 1 FROM favoriteTracks WHERE trackId = t.id)
    OR EXISTS (SELECT 1 FROM pinnedItems
               WHERE type = 'song' AND referenceId = CAST(t.id AS TEXT)))
)";

constexpr const char* kParkHistory = R"(
INSERT INTO departedHistory (id, trackId, playedAt, duration, skipped)
SELECT id, trackId, playedAt, duration, skipped FROM playbackHistory WHERE {})";

constexpr const char* kParkPlaces = R"(
INSERT INTO departedPlaces (trackId, playlistId, position, createdAt)
SELECT trackId, playlistId, position, createdAt FROM playlist_tracks WHERE {})";

std::string where(const char* statement, const std::string& condition) {
  return fmt::format(fmt::runtime(statement), condition);
}

bool anyParked(sqlite::Reader& reader) {
  return reader.first<int>("SELECT 1 FROM departedTracks LIMIT 1").has_value();
}

}  // namespace

void parkTracks(Writer& writer, std::span<const std::int64_t> ids) {
  const std::string list = " IN (" + sqlite::placeholders(ids.size()) + ")";
  const auto parked =
      writer.run(where(kParkTracks, "t.id" + list), std::chrono::system_clock::now(), ids);
  if (parked == 0) return;
  writer.run(where(kParkHistory, "trackId" + list), ids);
  writer.run(where(kParkPlaces, "trackId" + list), ids);
}

void parkAllTracks(Writer& writer) {
  writer.run(where(kParkTracks, "TRUE"), std::chrono::system_clock::now());
  writer.run(where(kParkHistory, "TRUE"));
  writer.run(where(kParkPlaces, "TRUE"));
}

void forgetDeparted(Writer& writer) {
  for (const char* table : {"departedHistory", "departedPlaces", "departedTracks", "departedPins",
                            "favoriteTracks", "trackSuccessions"}) {
    writer.run(std::string("DELETE FROM ") + table);
  }
}

void giveBack(Writer& writer, std::int64_t departedId, std::int64_t trackId,
              PlaylistPlaces& places) {
  writer.run(R"(
UPDATE tracks SET
    totalPlays = tracks.totalPlays + gone.totalPlays,
    totalSkips = tracks.totalSkips + gone.totalSkips,
    rating = COALESCE(tracks.rating, gone.rating),
    bookmarks = COALESCE(tracks.bookmarks, gone.bookmarks),
    syncedLyrics = COALESCE(tracks.syncedLyrics, gone.syncedLyrics)
FROM departedTracks AS gone
WHERE tracks.id = ? AND gone.trackId = ?)",
             trackId, departedId);
  // Rows keep their ids: of two plays at one moment the later one has the higher.
  writer.run(R"(
INSERT INTO playbackHistory (id, trackId, playedAt, duration, skipped)
SELECT id, ?, playedAt, duration, skipped FROM departedHistory WHERE trackId = ?)",
             trackId, departedId);
  writer.each(
      "SELECT playlistId, position, createdAt FROM departedPlaces WHERE trackId = ?",
      [&](const sqlite::Row& row) {
        places.add(row.get<std::int64_t>(0),
                   {row.get<std::int64_t>(1), trackId, row.get<std::string>(2)});
      },
      departedId);
  writer.run(R"(
INSERT OR IGNORE INTO trackSounds (trackId, soundHash, fileSize, lastModified)
SELECT ?, soundHash, soundFileSize, soundLastModified FROM departedTracks
WHERE trackId = ? AND soundHash IS NOT NULL)",
             trackId, departedId);
  writer.run(R"(
UPDATE OR REPLACE pinnedItems SET referenceId = CAST(? AS TEXT)
WHERE type = 'song' AND referenceId = CAST(? AS TEXT))",
             trackId, departedId);
  writer.run("INSERT INTO trackSuccessions (oldId, newId, happenedAt) VALUES (?, ?, ?)", departedId,
             trackId, std::chrono::system_clock::now());
  writer.run("DELETE FROM departedTracks WHERE trackId = ?", departedId);
}

ReturningTracks::ReturningTracks(Writer& writer)
    : _writer(writer), _anyParked(anyParked(writer)), _places(writer) {}

void ReturningTracks::arrived(std::int64_t id, const Track& track) {
  if (!_anyParked) return;
  // A length of 0 is one that could not be told.
  const auto parked = _writer.column<std::int64_t>(R"(
SELECT trackId FROM departedTracks
WHERE filePath = ? AND cueStartTime IS ?
  AND (abs(duration - ?) <= ? OR min(duration, ?) <= 0)
ORDER BY trackId)",
                                                   track.filePath, track.cueStartTime,
                                                   track.duration, kSameRecording, track.duration);
  for (const std::int64_t departedId : parked) giveBack(_writer, departedId, id, _places);
}

}  // namespace velorin
