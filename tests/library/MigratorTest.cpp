// The schema's history: what stands at its end, and that a library of any earlier time gets there
// with everything it holds.

#include <gtest/gtest.h>
#include <sqlite3.h>

#include "library/schema/Migrator.h"
#include "support/TemporaryFolder.h"

namespace velorin {
namespace {

using schema::migrate;
using sqlite::Connection;
using sqlite::Reader;

/// The first column of all rows, one a line.
std::string lines(Connection& connection, std::string_view sql) {
  std::string text;
  Reader(connection).each(sql, [&](const sqlite::Row& row) {
    text += row.get<std::string>(0) + "\n";
  });
  return text;
}

std::string ledger(Connection& connection) {
  std::string text = lines(connection, "SELECT identifier FROM grdb_migrations ORDER BY rowid");
  std::ranges::replace(text, '\n', ' ');
  return text;
}

std::string columnsOf(Connection& connection, const std::string& table) {
  std::string text;
  auto columns = Reader(connection)
                     .query(R"(
SELECT c.name, c.type, c."notnull", c.dflt_value, c.pk, f."table", f."to", f.on_delete
FROM pragma_table_info(?) c
LEFT JOIN pragma_foreign_key_list(?) f ON f."from" = c.name
ORDER BY c.cid
)",
                            table, table);
  while (columns.next()) {
    const auto name = columns.get<std::string>(0);
    const char* collation = nullptr;
    int isAutoIncremented = 0;
    sqlite3_table_column_metadata(connection.handle(), nullptr, table.c_str(), name.c_str(),
                                  nullptr, &collation, nullptr, nullptr, &isAutoIncremented);
    text += " " + name + " " + columns.get<std::string>(1);
    if (columns.get<int>(4) != 0) text += " key " + columns.get<std::string>(4);
    if (isAutoIncremented != 0) text += " auto";
    if (columns.get<bool>(2)) text += " not null";
    if (!columns.row().isNull(3)) text += " default " + columns.get<std::string>(3);
    if (collation != std::string_view("BINARY")) text += " " + std::string(collation);
    if (!columns.row().isNull(5)) {
      text += " of " + columns.get<std::string>(5) + "." + columns.get<std::string>(6) + " " +
              columns.get<std::string>(7);
    }
    text += ";";
  }
  return text;
}

/// All tables but the inner ones of SQLite and of the full-text index, with columns and indexes.
std::string describe(Connection& connection) {
  std::string text;
  for (const auto& table : Reader(connection).column<std::string>(R"(
SELECT name FROM sqlite_master
WHERE type = 'table' AND name NOT LIKE 'sqlite%' AND name NOT LIKE 'tracks_fts%'
ORDER BY name COLLATE NOCASE
)")) {
    text += table + ":" + columnsOf(connection, table);
    Reader(connection)
        .each(R"(
SELECT CASE WHEN i."unique" THEN ' unique ' ELSE ' index ' END
       || CASE WHEN i.name LIKE 'sqlite_autoindex%' THEN '' ELSE i.name || ' ' END
       || (SELECT group_concat(x.name || CASE x.coll WHEN 'BINARY' THEN '' ELSE ' ' || x.coll END)
           FROM pragma_index_xinfo(i.name) x WHERE x.key)
FROM pragma_index_list(?) i
ORDER BY i.name COLLATE NOCASE
)",
              [&](const sqlite::Row& row) { text += row.get<std::string>(0) + ";"; }, table);
    text.back() = '\n';
  }
  return text;
}

/// A text without the breaks of its lines here.
std::string unfolded(std::string text) {
  for (std::size_t at; (at = text.find("\n  ")) != std::string::npos;) text.replace(at, 3, " ");
  return text.substr(1);
}

const std::string kFinalSchema = unfolded(R"(
albums: id INTEGER key 1 auto; title TEXT not null NOCASE;
  artistId INTEGER not null of artists.id CASCADE; year INTEGER; artworkPath TEXT; genre TEXT;
  worstFormat TEXT; accentColorHex TEXT; unique title NOCASE,artistId
artists: id INTEGER key 1 auto; name TEXT not null NOCASE; unique name NOCASE
departedHistory: trackId INTEGER key 1 not null; id INTEGER key 2 not null;
  playedAt DATETIME not null; duration REAL not null; skipped INTEGER not null; unique trackId,id
departedPins: type TEXT key 1 not null; referenceId TEXT key 2 not null;
  artistName TEXT not null NOCASE; albumTitle TEXT not null NOCASE; unique type,referenceId
departedPlaces: trackId INTEGER key 1 not null;
  playlistId INTEGER key 2 not null of playlists.id CASCADE; position INTEGER not null;
  createdAt DATETIME not null; index idx_departedPlaces_playlist playlistId;
  unique trackId,playlistId
departedTracks: trackId INTEGER key 1; filePath TEXT not null; cueStartTime DOUBLE;
  fileSize INTEGER; lastModified DATETIME; duration DOUBLE not null; title TEXT not null;
  artistName TEXT not null; albumTitle TEXT not null; totalPlays INTEGER not null;
  totalSkips INTEGER not null; rating INTEGER; bookmarks TEXT; syncedLyrics TEXT; soundHash TEXT;
  soundFileSize INTEGER; soundLastModified DATETIME; departedAt DATETIME not null;
  lastId INTEGER not null; searchedUpTo INTEGER not null default 0;
  index idx_departedTracks_filePath filePath,cueStartTime;
  index idx_departedTracks_searchedUpTo searchedUpTo
duplicateCandidates: trackId1 INTEGER key 1 not null of tracks.id CASCADE;
  trackId2 INTEGER key 2 not null of tracks.id CASCADE; matchType TEXT not null;
  similarity DOUBLE; index idx_duplicateCandidates_track1 trackId1;
  index idx_duplicateCandidates_track2 trackId2; unique trackId1,trackId2
favoriteTracks: trackId INTEGER key 1
grdb_migrations: identifier TEXT key 1 not null; unique identifier
musicFolders: id INTEGER key 1 auto; path TEXT not null; lastScanned DATETIME; unique path
pinnedItems: id INTEGER key 1 auto; type TEXT not null; referenceId TEXT not null;
  position INTEGER not null; createdAt DATETIME not null default CURRENT_TIMESTAMP;
  unique idx_pinned_type_ref type,referenceId
playbackHistory: id INTEGER key 1 auto; trackId INTEGER not null of tracks.id CASCADE;
  playedAt DATETIME not null; duration REAL not null default 0;
  skipped INTEGER not null default 0; index idx_history_playedAt playedAt;
  index idx_history_track trackId,playedAt,skipped,duration
playlist_tracks: id INTEGER key 1 auto; playlistId INTEGER not null of playlists.id CASCADE;
  trackId INTEGER not null of tracks.id CASCADE; position INTEGER not null;
  createdAt DATETIME not null; index idx_playlist_tracks_playlist playlistId,position;
  index idx_playlist_tracks_track trackId; unique playlistId,trackId; unique playlistId,position
playlists: id INTEGER key 1 auto; name TEXT not null NOCASE;
  isSmartPlaylist INTEGER not null default 0; rulesJSON TEXT; createdAt DATETIME not null;
  updatedAt DATETIME not null; isHidden INTEGER not null default 0; unique name NOCASE
processedCues: path TEXT key 1 not null; lastModified DOUBLE not null; unique path
scrobbleQueue: id INTEGER key 1 auto; artist TEXT not null; track TEXT not null; album TEXT;
  albumArtist TEXT; timestamp INTEGER not null; duration INTEGER
trackAnalysis: id INTEGER key 1 auto; trackId INTEGER not null of tracks.id CASCADE; bpm DOUBLE;
  energy DOUBLE; mood TEXT; moodConfidence DOUBLE; isVocal BOOLEAN; vocalConfidence DOUBLE;
  genre TEXT; genreConfidence DOUBLE; keySignature TEXT; danceability DOUBLE;
  analyzedAt DATETIME not null; analyzerVersion INTEGER not null default 1; embedding BLOB;
  fingerprint TEXT; unique trackId
tracks: id INTEGER key 1 auto; title TEXT not null; trackNumber INTEGER; discNumber INTEGER;
  duration DOUBLE not null; filePath TEXT not null;
  albumId INTEGER not null of albums.id CASCADE; artistId INTEGER not null of artists.id CASCADE;
  sampleRate INTEGER; bitDepth INTEGER; channels INTEGER; format TEXT; fileSize INTEGER;
  lastModified DATETIME; cueStartTime DOUBLE; cueEndTime DOUBLE; composer TEXT; conductor TEXT;
  comment TEXT; lyrics TEXT; genre TEXT; bitRate INTEGER; replayGainTrackGain DOUBLE;
  replayGainAlbumGain DOUBLE; replayGainTrackPeak DOUBLE; replayGainAlbumPeak DOUBLE;
  year INTEGER; syncedLyrics TEXT; bookmarks TEXT; rating INTEGER;
  totalPlays INTEGER not null default 0; totalSkips INTEGER not null default 0;
  scannedLoudness DOUBLE; scannedTruePeak DOUBLE; loudnessScanVersion INTEGER;
  dynamicRange INTEGER; index idx_tracks_album albumId; index idx_tracks_artist artistId;
  index idx_tracks_composer composer; index idx_tracks_filePath filePath;
  index idx_tracks_filePath_cue filePath,cueStartTime; index idx_tracks_genre genre;
  index idx_tracks_lastModified lastModified; index idx_tracks_listened id
trackSounds: trackId INTEGER key 1 of tracks.id CASCADE; soundHash TEXT;
  duration DOUBLE not null; fileSize INTEGER; lastModified DATETIME;
  index idx_trackSounds_outdated trackId
trackSuccessions: id INTEGER key 1 auto; oldId INTEGER not null; newId INTEGER not null;
  happenedAt DATETIME not null; index idx_trackSuccessions_oldId oldId
trackWaveform: trackId INTEGER key 1 of tracks.id CASCADE; peaks BLOB not null
)");

const std::string kHistory = unfolded(R"(
v1 v2_cue v3_metadata v4_history v5_playlists v6_bitrate v7_audio_analysis v8_nocase
  v9_history_extended v10_album_worst_format v10_pinned_items v11_playlist_soft_delete
  v12_embedding_column v13_processed_cues v14_fts5 v15_replaygain v16_indexes v17_track_year
  v18_missing_indexes v19_syncedLyrics v20_fingerprint v21_bookmarks v22_rating v23_play_counts
  v24_scrobble_queue v25_duplicate_candidates v26_accent_color v27_replaygain_scan v28_dynamic_range
  v29_fix_corrupted_loudness_scan v30_departed_tracks v31_history_by_track )");

constexpr const char* kFullTextIndex =
    "CREATE VIRTUAL TABLE tracks_fts USING fts5(\n    title,\n    artistName,\n    albumTitle,\n"
    "    tokenize='porter unicode61'\n)\n";

TEST(Migrator, AnEmptyFileGetsTheWholeSchema) {
  Connection connection(":memory:");
  migrate(connection);
  EXPECT_EQ(describe(connection), kFinalSchema);
  EXPECT_EQ(lines(connection, "SELECT sql FROM sqlite_master WHERE name = 'tracks_fts'"),
            kFullTextIndex);
  EXPECT_EQ(ledger(connection), kHistory);
  EXPECT_EQ(lines(connection, "SELECT COUNT(*) FROM tracks_fts"), "0\n");
}

TEST(Migrator, AMigratedFileIsNotWrittenTo) {
  const test::TemporaryFolder folder;
  Connection connection(folder / "library.sqlite");
  migrate(connection);
  Connection other(folder / "library.sqlite");
  other.executeScript("BEGIN IMMEDIATE");
  sqlite3_busy_timeout(connection.handle(), 0);
  EXPECT_NO_THROW(migrate(connection));
}

/// What users of a version had, for the times from `since` on until `before` came. Ids leave gaps,
/// as deletions do.
struct Rows {
  std::string_view since;
  std::string_view before;
  const char* sql;
};

constexpr Rows kRows[] = {
    {"v1", {}, R"(
INSERT INTO artists (id, name) VALUES
    (3, 'Beatles'), (20, 'Ärzte'), (21, 'ärzte'), (30, ''), (31, 'O''Neil %_'), (99, 'gone');
INSERT INTO albums (id, title, artistId, year) VALUES
    (1, 'Help!', 3, 1965), (8, 'Élan', 20, NULL), (9, 'élan', 20, 2000), (10, '', 30, NULL),
    (90, 'gone', 31, 1);
INSERT INTO tracks (id, title, duration, filePath, albumId, artistId, format, lastModified) VALUES
    (1, 'One', 1.5, '/m/1.flac', 1, 3, 'FLAC', '2020-01-02 03:04:05.678'),
    (4, 'Vier', 0, '/m/4', 8, 20, NULL, NULL),
    (5, 'vier', 2, '/m/5', 9, 21, 'dsd', NULL),
    (6, '', 1e9, '/m/6', 10, 31, '', NULL),
    (77, 'gone', 1, '/m/77', 1, 3, NULL, NULL);
INSERT INTO musicFolders (id, path) VALUES (2, '/m');
DELETE FROM tracks WHERE id = 77;
DELETE FROM albums WHERE id = 90;
DELETE FROM artists WHERE id = 99;
)"},
    {"v1", "v8_nocase", R"(
INSERT INTO artists (id, name) VALUES (5, 'BEATLES'), (9, 'beatles');
INSERT INTO albums (id, title, artistId) VALUES
    (2, 'HELP!', 3), (3, 'Help!', 5), (4, 'help!', 9), (6, 'Anthology', 9), (7, 'Anthology', 3);
INSERT INTO tracks (id, title, duration, filePath, albumId, artistId) VALUES
    (11, 'a', 1, '/m/11', 2, 3), (12, 'b', 1, '/m/12', 3, 5), (13, 'c', 1, '/m/13', 4, 9),
    (14, 'd', 1, '/m/14', 6, 9), (15, 'e', 1, '/m/15', 7, 3), (16, 'f', 1, '/m/16', 7, 5);
)"},
    {"v2_cue", {}, R"(
INSERT INTO tracks (id, title, duration, filePath, albumId, artistId, cueStartTime, cueEndTime)
VALUES (50, 'cue', 10, '/m/1.flac', 1, 3, 0, 10), (51, 'cue', 10, '/m/1.flac', 1, 3, 10, 20);
)"},
    {"v4_history", {}, R"(
INSERT INTO playbackHistory (id, trackId, playedAt) VALUES
    (1, 1, '2021-01-01 00:00:00.000'), (2, 1, '2021-01-02 00:00:00.000'),
    (7, 4, '1999-12-31 23:59:59.999');
)"},
    {"v5_playlists", {}, R"(
INSERT INTO playlists (id, name, rulesJSON, createdAt, updatedAt) VALUES
    (4, 'Mine', NULL, '', ''), (6, 'Größe', '{}', '', ''), (7, 'GRÖßE', '{}', '', '');
INSERT INTO playlist_tracks (id, playlistId, trackId, position, createdAt) VALUES
    (2, 4, 5, 0, ''), (5, 4, 1, 1, ''), (9, 6, 1, 0, '');
)"},
    {"v7_audio_analysis", {}, R"(
INSERT INTO trackAnalysis (id, trackId, bpm, analyzedAt) VALUES (3, 1, 120.5, ''), (8, 4, NULL, '');
)"},
    {"v9_history_extended", {}, R"(
INSERT INTO playbackHistory (id, trackId, playedAt, duration, skipped) VALUES
    (11, 5, '2022-01-01 00:00:00.000', 3.5, 1), (12, 5, '2022-01-01 00:00:00.000', 1, 0);
)"},
    {"v14_fts5", {}, R"(
INSERT INTO tracks_fts (rowid, title, artistName, albumTitle)
SELECT tracks.id, tracks.title, name, albums.title FROM tracks
JOIN artists ON artists.id = tracks.artistId JOIN albums ON albums.id = albumId;
)"},
    {"v23_play_counts", {}, R"(
UPDATE tracks SET
    totalPlays = (SELECT COUNT(*) FROM playbackHistory WHERE trackId = tracks.id AND skipped = 0),
    totalSkips = (SELECT COUNT(*) FROM playbackHistory WHERE trackId = tracks.id AND skipped = 1);
)"},
    {"v25_duplicate_candidates", {}, "INSERT INTO duplicateCandidates VALUES (1, 4, 'x', NULL)"},
    {"v27_replaygain_scan", "v28_dynamic_range", R"(
ALTER TABLE tracks ADD COLUMN dynamicRange INTEGER;
UPDATE tracks SET dynamicRange = 11;
)"},
    {"v27_replaygain_scan", {}, "INSERT INTO trackWaveform VALUES (6, x'00ff')"},
};

/// What a table's rows must still say at the end.
struct Survivor {
  std::string_view since;
  const char* sql;
};

constexpr Survivor kSurvivors[] = {
    {"v1", R"(SELECT id || quote(title) || duration || filePath || quote(format) ||
              quote(lastModified) FROM tracks ORDER BY id)"},
    {"v1", "SELECT name || seq FROM sqlite_sequence ORDER BY name"},
    {"v1", "SELECT id || path FROM musicFolders"},
    {"v2_cue", "SELECT id || quote(cueStartTime) || quote(cueEndTime) FROM tracks ORDER BY id"},
    {"v4_history", "SELECT id || ' ' || trackId || playedAt FROM playbackHistory ORDER BY id"},
    {"v5_playlists", "SELECT id || name || quote(rulesJSON) FROM playlists ORDER BY id"},
    {"v5_playlists", "SELECT id || ' ' || playlistId || trackId || position FROM playlist_tracks"},
    {"v7_audio_analysis", "SELECT id || ' ' || trackId || quote(bpm) FROM trackAnalysis"},
    {"v9_history_extended", "SELECT id || ' ' || duration || skipped FROM playbackHistory"},
    {"v25_duplicate_candidates", "SELECT trackId1 || trackId2 FROM duplicateCandidates"},
    {"v27_replaygain_scan", "SELECT trackId || quote(peaks) FROM trackWaveform"},
};

std::size_t timeOf(std::string_view identifier) {
  const auto all = schema::migrations();
  return static_cast<std::size_t>(
      std::ranges::find(all, identifier, &schema::Migration::identifier) - all.begin());
}

std::string survivors(Connection& connection, std::size_t time) {
  std::string text;
  for (const Survivor& each : kSurvivors) {
    if (timeOf(each.since) <= time) text += lines(connection, each.sql) + "\n";
  }
  return text;
}

void expectSound(Connection& connection) {
  EXPECT_EQ(lines(connection, "PRAGMA integrity_check"), "ok\n");
  EXPECT_EQ(lines(connection, "PRAGMA foreign_key_check"), "");
  EXPECT_EQ(lines(connection, "PRAGMA foreign_keys"), "1\n");
  EXPECT_EQ(lines(connection, "SELECT name FROM temp.sqlite_master"), "");
  EXPECT_FALSE(connection.isInTransaction());
}

TEST(Migrator, ALibraryOfAnyTimeKeepsWhatItHolds) {
  for (std::size_t time = 0; time < schema::migrations().size(); ++time) {
    const auto start = schema::migrations()[time].identifier;
    SCOPED_TRACE(start);
    Connection connection(":memory:");
    migrate(connection, start);
    for (const Rows& rows : kRows) {
      if (timeOf(rows.since) <= time && (rows.before.empty() || time < timeOf(rows.before))) {
        connection.executeScript(rows.sql);
      }
    }
    const std::string before = survivors(connection, time);
    migrate(connection);
    EXPECT_EQ(survivors(connection, time), before);
    EXPECT_EQ(describe(connection), kFinalSchema);
    EXPECT_EQ(ledger(connection), kHistory);
    expectSound(connection);
    connection.executeScript("INSERT INTO tracks_fts(tracks_fts) VALUES ('integrity-check')");
    EXPECT_EQ(lines(connection, R"(
SELECT rowid || title || artistName || albumTitle FROM tracks_fts ORDER BY rowid)"),
              lines(connection, R"(
SELECT t.id || t.title || ar.name || al.title FROM tracks t
JOIN artists ar ON ar.id = t.artistId JOIN albums al ON al.id = t.albumId ORDER BY t.id)"));
    EXPECT_EQ(lines(connection, R"(
SELECT t.id FROM tracks t WHERE totalPlays != (
    SELECT COUNT(*) FROM playbackHistory WHERE trackId = t.id AND skipped = 0))"),
              "");
    if (time < timeOf("v8_nocase")) {
      EXPECT_EQ(lines(connection, "SELECT id || ' ' || name FROM artists ORDER BY id"),
                "3 Beatles\n20 Ärzte\n21 ärzte\n30 \n31 O'Neil %_\n");
      EXPECT_EQ(lines(connection, R"(
SELECT id || ' ' || title || ' ' || artistId || ' ' || quote(year) FROM albums ORDER BY id)"),
                "1 Help! 3 1965\n6 Anthology 3 NULL\n8 Élan 20 NULL\n9 élan 20 2000\n"
                "10  30 NULL\n");
      EXPECT_EQ(lines(connection, R"(
SELECT id || ' ' || albumId || ' ' || artistId FROM tracks WHERE id BETWEEN 11 AND 16)"),
                "11 1 3\n12 1 3\n13 1 3\n14 6 3\n15 6 3\n16 6 3\n");
    }
    EXPECT_THROW(connection.executeScript("INSERT INTO artists (name) VALUES ('BeAtLeS')"),
                 sqlite::SqliteError);
    EXPECT_THROW(
        connection.executeScript("INSERT INTO albums (title, artistId) VALUES ('hELP!', 3)"),
        sqlite::SqliteError);
    connection.executeScript("DELETE FROM artists");
    EXPECT_EQ(lines(connection, R"(
SELECT (SELECT COUNT(*) FROM albums) + (SELECT COUNT(*) FROM tracks)
     + (SELECT COUNT(*) FROM playbackHistory) + (SELECT COUNT(*) FROM playlist_tracks)
     + (SELECT COUNT(*) FROM trackAnalysis) + (SELECT COUNT(*) FROM duplicateCandidates)
     + (SELECT COUNT(*) FROM trackWaveform))"),
              "0\n");
  }
}

/// What single steps make of the rows that they meet.
TEST(Migrator, StepsFillWhatTheyAdd) {
  constexpr const char* kAlbum = R"(
INSERT INTO artists (id, name) VALUES (1, 'A');
INSERT INTO albums (id, title, artistId, year) VALUES (1, 'x', 1, 1970), (2, 'y', 1, NULL);
)";
  struct Case {
    std::string_view start;
    const char* rows;
    const char* query;
    const char* expected;
  };
  for (const Case& each : {
           Case{"v9_history_extended", R"(
INSERT INTO tracks (id, title, duration, filePath, albumId, artistId, format) VALUES
    (1, '', 1, '1', 1, 1, 'DSD'), (2, '', 1, '2', 1, 1, 'flac'), (3, '', 1, '3', 1, 1, 'WAV'),
    (4, '', 1, '4', 2, 1, 'FLAC'), (6, '', 1, '6', 2, 1, 'Opus'), (5, '', 1, '5', 2, 1, 'MP3');
INSERT INTO albums (id, title, artistId) VALUES (3, 'empty', 1);
)",
                "SELECT id || quote(worstFormat) FROM albums", "1'flac'\n2'MP3'\n3NULL\n"},
           Case{"v16_indexes", R"(
INSERT INTO tracks (id, title, duration, filePath, albumId, artistId) VALUES
    (1, '', 1, '1', 1, 1), (2, '', 1, '2', 2, 1);
)",
                "SELECT id || quote(year) FROM tracks", "11970\n2NULL\n"},
           Case{"v22_rating", R"(
INSERT INTO tracks (id, title, duration, filePath, albumId, artistId) VALUES
    (1, '', 1, '1', 1, 1), (2, '', 1, '2', 2, 1);
INSERT INTO playbackHistory (trackId, playedAt, skipped) VALUES (1, '', 0), (1, '', 1), (1, '', 0);
)",
                "SELECT id || ' ' || totalPlays || totalSkips FROM tracks", "1 21\n2 00\n"},
           Case{"v27_replaygain_scan", R"(
ALTER TABLE tracks ADD COLUMN dynamicRange INTEGER;
INSERT INTO tracks (id, title, duration, filePath, albumId, artistId, loudnessScanVersion,
                    scannedLoudness, replayGainTrackGain, replayGainAlbumGain, dynamicRange)
VALUES (1, '', 1, '1', 1, 1, 2, NULL, NULL, NULL, 8), (2, '', 1, '2', 1, 1, 2, -9.5, NULL, NULL, 7),
       (3, '', 1, '3', 1, 1, 2, NULL, 0.0, NULL, 6), (4, '', 1, '4', 1, 1, 2, NULL, NULL, 1.0, 5),
       (5, '', 1, '5', 1, 1, NULL, NULL, NULL, NULL, 4);
)",
                "SELECT quote(loudnessScanVersion) || ' ' || dynamicRange FROM tracks",
                "NULL 8\n2 7\n2 6\n2 5\nNULL 4\n"},
       }) {
    SCOPED_TRACE(each.start);
    Connection connection(":memory:");
    migrate(connection, each.start);
    connection.executeScript(kAlbum);
    connection.executeScript(each.rows);
    migrate(connection);
    EXPECT_EQ(lines(connection, each.query), each.expected);
    expectSound(connection);
  }
}

TEST(Migrator, AStepThatFailsNamesItselfAndLeavesTheFileAsItWas) {
  struct Case {
    std::string_view start;
    const char* spoil;
    std::string_view fails;
    std::string_view saying;
    const char* repair;
  };
  for (const Case& each : {
           Case{"v1", "CREATE TABLE playlists (x)", "v5_playlists", "already exists",
                "DROP TABLE playlists"},
           Case{"v26_accent_color", "CREATE TABLE trackWaveform (x)", "v27_replaygain_scan",
                "already exists", "DROP TABLE trackWaveform"},
           Case{"v7_audio_analysis", "CREATE TABLE albums_new (x)", "v8_nocase", "already exists",
                "DROP TABLE albums_new"},
           Case{"v5_playlists", R"(
PRAGMA foreign_keys = OFF;
INSERT INTO tracks (id, title, duration, filePath, albumId, artistId) VALUES (7, '', 1, '', 8, 9);
PRAGMA foreign_keys = ON;
)",
                "v6_bitrate", "row 7 of the table tracks refers to a row of", "DELETE FROM tracks"},
       }) {
    SCOPED_TRACE(each.fails);
    Connection connection(":memory:");
    const auto failing = timeOf(each.fails);
    migrate(connection, each.start);
    connection.executeScript("INSERT OR IGNORE INTO artists (name) VALUES ('x'), ('X')");
    connection.executeScript(each.spoil);
    migrate(connection, schema::migrations()[failing - 1].identifier);
    const std::string before = describe(connection) + ledger(connection) +
                               lines(connection, "SELECT id || name FROM artists");
    try {
      migrate(connection);
      ADD_FAILURE() << "it did not fail";
    } catch (const VelorinDatabaseError& error) {
      EXPECT_NE(error.message.find(each.fails), std::string::npos) << error.message;
      EXPECT_NE(error.message.find(each.saying), std::string::npos) << error.message;
    }
    EXPECT_EQ(describe(connection) + ledger(connection) +
                  lines(connection, "SELECT id || name FROM artists"),
              before);
    EXPECT_EQ(lines(connection, "PRAGMA foreign_keys"), "1\n");
    EXPECT_FALSE(connection.isInTransaction());
    connection.executeScript(each.repair);
    migrate(connection);
    EXPECT_EQ(describe(connection), kFinalSchema);
    expectSound(connection);
  }
  Connection connection(":memory:");
  connection.executeScript("BEGIN");
  EXPECT_THROW(migrate(connection), VelorinDatabaseError);
}

}  // namespace
}  // namespace velorin
