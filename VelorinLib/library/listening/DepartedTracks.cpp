#include "library/listening/DepartedTracks.h"

#include <chrono>

namespace velorin {
namespace {

using sqlite::Writer;

/// With the id to park under, the tracks, and which of them.
constexpr const char* kParkTracks = R"(
INSERT INTO departedTracks (
    trackId, filePath, cueStartTime, fileSize, lastModified, duration, title, artistName,
    albumTitle, totalPlays, totalSkips, rating, bookmarks, syncedLyrics, soundHash, soundFileSize,
    soundLastModified, departedAt, lastId)
SELECT {}, t.filePath, t.cueStartTime, t.fileSize, t.lastModified,
       CASE WHEN s.soundHash IS NULL THEN t.duration ELSE s.duration END, t.title,
       COALESCE(ar.name, ''), COALESCE(al.title, ''), t.totalPlays, t.totalSkips, t.rating,
       t.bookmarks, t.syncedLyrics, s.soundHash, s.fileSize, s.lastModified, ?,
       COALESCE((SELECT seq FROM sqlite_sequence WHERE name = 'tracks'), 0)
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

// In the order of the index, which holds all of it: a whole library's history is read from end to
// end and written from end to end.
constexpr const char* kParkHistory = R"(
INSERT INTO departedHistory (trackId, id, playedAt, duration, skipped)
SELECT {}, id, playedAt, duration, skipped
FROM playbackHistory INDEXED BY idx_history_track
WHERE {} ORDER BY trackId, playedAt)";

constexpr const char* kParkPlaces = R"(
INSERT INTO departedPlaces (trackId, playlistId, position, createdAt)
SELECT {}, playlistId, position, createdAt FROM playlist_tracks WHERE {})";

/// Parks tracks under an id, an SQL expression over "t.id" or "trackId". `some` ends in a condition
/// on it, such as " IN (?)".
template <class... Arguments>
void park(Writer& writer, std::string_view under, const std::string& some,
          const Arguments&... arguments) {
  const auto statement = [&](const char* text, std::string_view id) {
    const std::string key = under.empty() ? std::string(id) : std::string(under);
    return fmt::format(fmt::runtime(text), key,
                       some.empty() ? "TRUE" : fmt::format("{}{}", id, some));
  };
  const auto parked =
      writer.run(statement(kParkTracks, "t.id"), std::chrono::system_clock::now(), arguments...);
  if (parked == 0) return;
  writer.run(statement(kParkHistory, "trackId"), arguments...);
  writer.run(statement(kParkPlaces, "trackId"), arguments...);
}

bool anyParked(sqlite::Reader& reader) {
  return reader.first<int>("SELECT 1 FROM departedTracks LIMIT 1").has_value();
}

/// Notes that the mark of a favourite moves on, and returns the step before.
std::int64_t noteSuccession(Writer& writer, std::int64_t oldId, std::int64_t newId) {
  writer.run("INSERT INTO trackSuccessions (oldId, newId, happenedAt) VALUES (?, ?, ?)", oldId,
             newId, std::chrono::system_clock::now());
  return writer.lastInsertedId() - 1;
}

// What is done for all successions behind one, each of a parked track to a row: a scan brings
// tracks back in hundreds. CROSS JOIN keeps SQLite to the order in which the tables stand.

// With the state of the file that the sound was found in; where the file was written since, it is
// listened to again.
constexpr const char* kReturnSounds = R"(
INSERT OR IGNORE INTO trackSounds (trackId, soundHash, duration, fileSize, lastModified)
SELECT step.newId, gone.soundHash, gone.duration,
       CASE WHEN t.lastModified IS gone.soundLastModified AND t.fileSize IS gone.soundFileSize
            THEN t.fileSize END,
       gone.soundLastModified
FROM trackSuccessions AS step
CROSS JOIN departedTracks AS gone ON gone.trackId = step.oldId
CROSS JOIN tracks AS t ON t.id = step.newId
WHERE step.id > ? AND gone.soundHash IS NOT NULL)";

constexpr const char* kReturnMarks = R"(
UPDATE tracks SET
    totalPlays = tracks.totalPlays + gone.totalPlays,
    totalSkips = tracks.totalSkips + gone.totalSkips,
    rating = COALESCE(tracks.rating, gone.rating),
    bookmarks = COALESCE(tracks.bookmarks, gone.bookmarks),
    syncedLyrics = COALESCE(tracks.syncedLyrics, gone.syncedLyrics)
FROM trackSuccessions AS step
CROSS JOIN departedTracks AS gone ON gone.trackId = step.oldId
WHERE step.id > ? AND tracks.id = step.newId)";

// Rows keep their ids: of two plays at one moment the later one has the higher.
constexpr const char* kReturnHistory = R"(
INSERT INTO playbackHistory (id, trackId, playedAt, duration, skipped)
SELECT gone.id, step.newId, gone.playedAt, gone.duration, gone.skipped
FROM trackSuccessions AS step
CROSS JOIN departedHistory AS gone ON gone.trackId = step.oldId
WHERE step.id > ? ORDER BY gone.id)";

constexpr const char* kReturningPlaces = R"(
SELECT gone.playlistId, gone.position, step.newId, gone.createdAt
FROM trackSuccessions AS step
CROSS JOIN departedPlaces AS gone ON gone.trackId = step.oldId
WHERE step.id > ?)";

constexpr const char* kFollowedByPins = R"(
UPDATE OR REPLACE pinnedItems SET referenceId = CAST(step.newId AS TEXT)
FROM trackSuccessions AS step
WHERE step.id > ? AND type = 'song' AND referenceId = CAST(step.oldId AS TEXT))";

void followWithPins(Writer& writer, std::int64_t after) {
  if (!writer.first<int>("SELECT 1 FROM pinnedItems WHERE type = 'song' LIMIT 1")) return;
  writer.run(kFollowedByPins, after);
}

/// Gives what is parked of each track to the row that succeeded it. No row may be there twice.
void giveBackAfter(Writer& writer, std::int64_t after, Sound sound, PlaylistPlaces& places) {
  if (sound == Sound::same) writer.run(kReturnSounds, after);
  writer.run(kReturnMarks, after);
  writer.run(kReturnHistory, after);
  writer.each(
      kReturningPlaces,
      [&](const sqlite::Row& row) {
        places.add(row.get<std::int64_t>(0),
                   {row.get<std::int64_t>(1), row.get<std::int64_t>(2), row.get<std::string>(3)});
      },
      after);
  followWithPins(writer, after);
  for (const char* table : {"departedHistory", "departedPlaces", "departedTracks"}) {
    writer.run(fmt::format("DELETE FROM {} WHERE trackId IN "
                           "(SELECT oldId FROM trackSuccessions WHERE id > ?)",
                           table),
               after);
  }
}

}  // namespace

void parkTracks(Writer& writer, std::span<const std::int64_t> ids) {
  park(writer, "", fmt::format(" IN ({})", sqlite::placeholders(ids.size())), ids);
}

void parkAllTracks(Writer& writer) {
  // The indexes are made anew behind it: sorted once they take half the time.
  const auto indexes = writer.column<std::string>(R"(
SELECT sql FROM sqlite_master
WHERE type = 'index' AND sql IS NOT NULL AND tbl_name = 'departedTracks')");
  for (const char* name : {"filePath", "searchedUpTo"}) {
    writer.run(fmt::format("DROP INDEX idx_departedTracks_{}", name));
  }
  park(writer, "", "");
  for (const std::string& sql : indexes) writer.run(sql);
}

std::optional<std::int64_t> parkBesideRow(Writer& writer, std::int64_t trackId) {
  const auto under = *writer.first<std::int64_t>(
      "SELECT MIN(COALESCE(MIN(trackId), 0), 0) - 1 FROM departedTracks");
  park(writer, std::to_string(under), " = ?", trackId);
  if (!writer.first<int>("SELECT 1 FROM departedTracks WHERE trackId = ?", under)) {
    return std::nullopt;
  }
  writer.run("UPDATE departedTracks SET syncedLyrics = NULL WHERE trackId = ?", under);
  writer.run("DELETE FROM playbackHistory WHERE trackId = ?", trackId);
  writer.run("DELETE FROM playlist_tracks WHERE trackId = ?", trackId);
  writer.run(R"(
UPDATE tracks SET totalPlays = 0, totalSkips = 0, rating = NULL, bookmarks = NULL WHERE id = ?)",
             trackId);
  followWithPins(writer, noteSuccession(writer, trackId, under));
  return under;
}

void forgetDeparted(Writer& writer) {
  for (const char* table : {"departedHistory", "departedPlaces", "departedTracks", "departedPins",
                            "trackSuccessions"}) {
    writer.run(fmt::format("DELETE FROM {}", table));
  }
  writer.run(R"(
INSERT INTO trackSuccessions (oldId, newId, happenedAt)
SELECT trackId, ?, ? FROM favoriteTracks)",
             kNoTrack, std::chrono::system_clock::now());
  writer.run("DELETE FROM favoriteTracks");
}

void giveBack(Writer& writer, std::int64_t departedId, std::int64_t trackId, Sound sound,
              PlaylistPlaces& places) {
  giveBackAfter(writer, noteSuccession(writer, departedId, trackId), sound, places);
}

std::int64_t presentId(sqlite::Reader& reader, std::int64_t trackId) {
  if (reader.first<int>("SELECT 1 FROM tracks WHERE id = ?", trackId)) return trackId;
  for (std::int64_t step = 0;;) {
    auto next = reader.query(
        "SELECT id, newId FROM trackSuccessions WHERE oldId = ? AND id > ? AND newId != ? "
        "ORDER BY id LIMIT 1",
        trackId, step, kNoTrack);
    if (!next.next()) return trackId;
    sqlite::RowReader(next.row()) >> step >> trackId;
  }
}

bool addToParked(Writer& writer, std::int64_t departedId,
                 std::chrono::system_clock::time_point playedAt, double duration, bool skipped) {
  const auto counted = writer.run(
      skipped ? "UPDATE departedTracks SET totalSkips = totalSkips + 1 WHERE trackId = ?"
              : "UPDATE departedTracks SET totalPlays = totalPlays + 1 WHERE trackId = ?",
      departedId);
  if (counted == 0) return false;
  // Its id is one that no row of the history will get.
  writer.run(R"(
INSERT INTO sqlite_sequence (name, seq)
SELECT 'playbackHistory', 0
WHERE NOT EXISTS (SELECT 1 FROM sqlite_sequence WHERE name = 'playbackHistory'))");
  writer.run("UPDATE sqlite_sequence SET seq = seq + 1 WHERE name = 'playbackHistory'");
  writer.run(R"(
INSERT INTO departedHistory (trackId, id, playedAt, duration, skipped)
SELECT ?, seq, ?, ?, ? FROM sqlite_sequence WHERE name = 'playbackHistory')",
             departedId, playedAt, duration, skipped);
  return true;
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
  bool isFirst = true;
  for (const std::int64_t departedId : parked) {
    if (!_given.insert(departedId).second) continue;
    if (!std::exchange(isFirst, false)) {
      _more.emplace_back(departedId, id);
      continue;
    }
    const std::int64_t before = noteSuccession(_writer, departedId, id);
    if (!_before) _before = before;
  }
}

void ReturningTracks::settle() {
  if (_before) giveBackAfter(_writer, *_before, Sound::same, _places);
  for (const auto& [departedId, id] : _more) {
    giveBack(_writer, departedId, id, Sound::same, _places);
  }
  _before.reset();
  _more.clear();
  _given.clear();
  _places.settle();
}

}  // namespace velorin
