// The history of the schema. Each step stands as it was released: a new wish is a new step.

#include <array>

#include "library/schema/DepartedMigration.h"
#include "library/schema/Migrator.h"
#include "library/schema/NoCaseMigration.h"

namespace velorin::schema {
namespace {

using sqlite::Connection;

constexpr std::array kMigrations{
    // Artists, albums and tracks, and the folders they come from.
    Migration{"v1",
              [](Connection& file) {
                file.executeScript(R"(
CREATE TABLE artists (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    name TEXT NOT NULL UNIQUE
);
CREATE TABLE albums (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    title TEXT NOT NULL,
    artistId INTEGER NOT NULL REFERENCES artists(id) ON DELETE CASCADE,
    year INTEGER,
    artworkPath TEXT,
    genre TEXT,
    UNIQUE (title, artistId)
);
CREATE TABLE tracks (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    title TEXT NOT NULL,
    trackNumber INTEGER,
    discNumber INTEGER,
    duration DOUBLE NOT NULL,
    filePath TEXT NOT NULL UNIQUE,
    albumId INTEGER NOT NULL REFERENCES albums(id) ON DELETE CASCADE,
    artistId INTEGER NOT NULL REFERENCES artists(id) ON DELETE CASCADE,
    sampleRate INTEGER,
    bitDepth INTEGER,
    channels INTEGER,
    format TEXT,
    fileSize INTEGER,
    lastModified DATETIME
);
CREATE INDEX idx_tracks_album ON tracks(albumId);
CREATE INDEX idx_tracks_artist ON tracks(artistId);
CREATE TABLE musicFolders (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    path TEXT NOT NULL UNIQUE,
    lastScanned DATETIME
);
)");
              }},

    // Tracks of a cue sheet share the path of their audio file, so that it is no longer unique.
    Migration{"v2_cue",
              [](Connection& file) {
                file.executeScript(R"(
CREATE TABLE tracks_new (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    title TEXT NOT NULL,
    trackNumber INTEGER,
    discNumber INTEGER,
    duration DOUBLE NOT NULL,
    filePath TEXT NOT NULL,
    albumId INTEGER NOT NULL REFERENCES albums(id) ON DELETE CASCADE,
    artistId INTEGER NOT NULL REFERENCES artists(id) ON DELETE CASCADE,
    sampleRate INTEGER,
    bitDepth INTEGER,
    channels INTEGER,
    format TEXT,
    fileSize INTEGER,
    lastModified DATETIME,
    cueStartTime DOUBLE,
    cueEndTime DOUBLE
);
INSERT INTO tracks_new (id, title, trackNumber, discNumber, duration, filePath,
                        albumId, artistId, sampleRate, bitDepth, channels,
                        format, fileSize, lastModified)
SELECT id, title, trackNumber, discNumber, duration, filePath,
       albumId, artistId, sampleRate, bitDepth, channels,
       format, fileSize, lastModified
FROM tracks;
DELETE FROM sqlite_sequence WHERE name = 'tracks_new';
INSERT INTO sqlite_sequence (name, seq)
SELECT 'tracks_new', seq FROM sqlite_sequence WHERE name = 'tracks';
DROP TABLE tracks;
ALTER TABLE tracks_new RENAME TO tracks;
CREATE INDEX idx_tracks_album ON tracks(albumId);
CREATE INDEX idx_tracks_artist ON tracks(artistId);
)");
              }},

    // More of what tags say.
    Migration{"v3_metadata",
              [](Connection& file) {
                file.executeScript(R"(
ALTER TABLE tracks ADD COLUMN composer TEXT;
ALTER TABLE tracks ADD COLUMN conductor TEXT;
ALTER TABLE tracks ADD COLUMN comment TEXT;
ALTER TABLE tracks ADD COLUMN lyrics TEXT;
ALTER TABLE tracks ADD COLUMN genre TEXT;
)");
              }},

    // What was played when.
    Migration{"v4_history",
              [](Connection& file) {
                file.executeScript(R"(
CREATE TABLE playbackHistory (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    trackId INTEGER NOT NULL REFERENCES tracks(id) ON DELETE CASCADE,
    playedAt DATETIME NOT NULL
);
CREATE INDEX idx_history_playedAt ON playbackHistory(playedAt);
)");
              }},

    // Playlists, plain and smart; a track stands in one at most once.
    Migration{"v5_playlists",
              [](Connection& file) {
                file.executeScript(R"(
CREATE TABLE playlists (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    name TEXT NOT NULL COLLATE NOCASE,
    isSmartPlaylist INTEGER NOT NULL DEFAULT 0,
    rulesJSON TEXT,
    createdAt DATETIME NOT NULL,
    updatedAt DATETIME NOT NULL,
    UNIQUE (name)
);
CREATE TABLE playlist_tracks (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    playlistId INTEGER NOT NULL REFERENCES playlists(id) ON DELETE CASCADE,
    trackId INTEGER NOT NULL REFERENCES tracks(id) ON DELETE CASCADE,
    position INTEGER NOT NULL,
    createdAt DATETIME NOT NULL,
    UNIQUE (playlistId, trackId),
    UNIQUE (playlistId, position)
);
CREATE INDEX idx_playlist_tracks_playlist ON playlist_tracks(playlistId, position);
CREATE INDEX idx_playlist_tracks_track ON playlist_tracks(trackId);
)");
              }},

    Migration{"v6_bitrate",
              [](Connection& file) {
                file.executeScript("ALTER TABLE tracks ADD COLUMN bitRate INTEGER");
              }},

    // What the analysis of a track's sound found.
    Migration{"v7_audio_analysis",
              [](Connection& file) {
                file.executeScript(R"(
CREATE TABLE trackAnalysis (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    trackId INTEGER NOT NULL UNIQUE REFERENCES tracks(id) ON DELETE CASCADE,
    bpm DOUBLE,
    energy DOUBLE,
    mood TEXT,
    moodConfidence DOUBLE,
    isVocal BOOLEAN,
    vocalConfidence DOUBLE,
    genre TEXT,
    genreConfidence DOUBLE,
    keySignature TEXT,
    danceability DOUBLE,
    analyzedAt DATETIME NOT NULL,
    analyzerVersion INTEGER NOT NULL DEFAULT 1
);
)");
              }},

    Migration{"v8_nocase", &mergeCaseTwins},

    // How long a track was listened to, and whether it was skipped.
    Migration{"v9_history_extended",
              [](Connection& file) {
                file.executeScript(R"(
ALTER TABLE playbackHistory ADD COLUMN duration REAL NOT NULL DEFAULT 0;
ALTER TABLE playbackHistory ADD COLUMN skipped INTEGER NOT NULL DEFAULT 0;
)");
              }},

    // The lowest-ranked format among an album's tracks.
    Migration{"v10_album_worst_format",
              [](Connection& file) {
                file.executeScript(R"(
ALTER TABLE albums ADD COLUMN worstFormat TEXT;
UPDATE albums SET worstFormat = (
    SELECT t.format FROM tracks t WHERE t.albumId = albums.id
    ORDER BY CASE UPPER(t.format)
        WHEN 'DSD' THEN 3 WHEN 'FLAC' THEN 2 WHEN 'ALAC' THEN 2
        WHEN 'AIFF' THEN 2 WHEN 'WAV' THEN 2 ELSE 1 END, t.id
    LIMIT 1
);
)");
              }},

    Migration{"v10_pinned_items",
              [](Connection& file) {
                file.executeScript(R"(
CREATE TABLE pinnedItems (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    type TEXT NOT NULL,
    referenceId TEXT NOT NULL,
    position INTEGER NOT NULL,
    createdAt DATETIME NOT NULL DEFAULT CURRENT_TIMESTAMP
);
CREATE UNIQUE INDEX idx_pinned_type_ref ON pinnedItems(type, referenceId);
)");
              }},

    Migration{"v11_playlist_soft_delete",
              [](Connection& file) {
                file.executeScript(
                    "ALTER TABLE playlists ADD COLUMN isHidden INTEGER NOT NULL DEFAULT 0");
              }},

    Migration{"v12_embedding_column",
              [](Connection& file) {
                file.executeScript("ALTER TABLE trackAnalysis ADD COLUMN embedding BLOB");
              }},

    // Which cue sheets were read, and how old they were.
    Migration{"v13_processed_cues",
              [](Connection& file) {
                file.executeScript(R"(
CREATE TABLE processedCues (
    path TEXT NOT NULL PRIMARY KEY,
    lastModified DOUBLE NOT NULL
);
)");
              }},

    // The full-text index. No triggers: whatever writes tracks keeps it in step.
    Migration{"v14_fts5",
              [](Connection& file) {
                file.executeScript(R"(
CREATE VIRTUAL TABLE tracks_fts USING fts5(
    title,
    artistName,
    albumTitle,
    tokenize='porter unicode61'
);
INSERT INTO tracks_fts(rowid, title, artistName, albumTitle)
SELECT t.id, t.title, ar.name, al.title
FROM tracks t
JOIN artists ar ON ar.id = t.artistId
JOIN albums al ON al.id = t.albumId;
)");
              }},

    // Loudness as tags tell it.
    Migration{"v15_replaygain",
              [](Connection& file) {
                file.executeScript(R"(
ALTER TABLE tracks ADD COLUMN replayGainTrackGain DOUBLE;
ALTER TABLE tracks ADD COLUMN replayGainAlbumGain DOUBLE;
ALTER TABLE tracks ADD COLUMN replayGainTrackPeak DOUBLE;
ALTER TABLE tracks ADD COLUMN replayGainAlbumPeak DOUBLE;
)");
              }},

    Migration{"v16_indexes",
              [](Connection& file) {
                file.executeScript(R"(
CREATE INDEX IF NOT EXISTS idx_tracks_filePath ON tracks(filePath);
CREATE INDEX IF NOT EXISTS idx_history_trackId ON playbackHistory(trackId);
)");
              }},

    // A track has a year of its own, at first that of its album.
    Migration{"v17_track_year",
              [](Connection& file) {
                file.executeScript(R"(
ALTER TABLE tracks ADD COLUMN year INTEGER;
UPDATE tracks SET year = (
    SELECT albums.year FROM albums WHERE albums.id = tracks.albumId
)
WHERE year IS NULL;
)");
              }},

    Migration{"v18_missing_indexes",
              [](Connection& file) {
                file.executeScript(R"(
CREATE INDEX IF NOT EXISTS idx_tracks_genre ON tracks(genre);
CREATE INDEX IF NOT EXISTS idx_tracks_composer ON tracks(composer);
CREATE INDEX IF NOT EXISTS idx_tracks_lastModified ON tracks(lastModified);
CREATE INDEX IF NOT EXISTS idx_tracks_filePath_cue ON tracks(filePath, cueStartTime);
)");
              }},

    Migration{"v19_syncedLyrics",
              [](Connection& file) {
                file.executeScript("ALTER TABLE tracks ADD COLUMN syncedLyrics TEXT");
              }},

    Migration{"v20_fingerprint",
              [](Connection& file) {
                file.executeScript("ALTER TABLE trackAnalysis ADD COLUMN fingerprint TEXT");
              }},

    Migration{"v21_bookmarks",
              [](Connection& file) {
                file.executeScript("ALTER TABLE tracks ADD COLUMN bookmarks TEXT");
              }},

    Migration{"v22_rating",
              [](Connection& file) {
                file.executeScript("ALTER TABLE tracks ADD COLUMN rating INTEGER");
              }},

    // Counters, so that no listing has to add up the history.
    Migration{"v23_play_counts",
              [](Connection& file) {
                file.executeScript(R"(
ALTER TABLE tracks ADD COLUMN totalPlays INTEGER NOT NULL DEFAULT 0;
ALTER TABLE tracks ADD COLUMN totalSkips INTEGER NOT NULL DEFAULT 0;
UPDATE tracks SET
    totalPlays = (SELECT COUNT(*) FROM playbackHistory WHERE trackId = tracks.id AND skipped = 0),
    totalSkips = (SELECT COUNT(*) FROM playbackHistory WHERE trackId = tracks.id AND skipped = 1);
)");
              }},

    // Plays that wait for the network.
    Migration{"v24_scrobble_queue",
              [](Connection& file) {
                file.executeScript(R"(
CREATE TABLE scrobbleQueue (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    artist TEXT NOT NULL,
    track TEXT NOT NULL,
    album TEXT,
    albumArtist TEXT,
    timestamp INTEGER NOT NULL,
    duration INTEGER
);
)");
              }},

    Migration{"v25_duplicate_candidates",
              [](Connection& file) {
                file.executeScript(R"(
CREATE TABLE duplicateCandidates (
    trackId1 INTEGER NOT NULL REFERENCES tracks(id) ON DELETE CASCADE,
    trackId2 INTEGER NOT NULL REFERENCES tracks(id) ON DELETE CASCADE,
    matchType TEXT NOT NULL,
    similarity DOUBLE,
    PRIMARY KEY (trackId1, trackId2)
);
CREATE INDEX idx_duplicateCandidates_track1 ON duplicateCandidates(trackId1);
CREATE INDEX idx_duplicateCandidates_track2 ON duplicateCandidates(trackId2);
)");
              }},

    Migration{"v26_accent_color",
              [](Connection& file) {
                file.executeScript("ALTER TABLE albums ADD COLUMN accentColorHex TEXT");
              }},

    // Loudness as we measured it, and the waveform that is drawn.
    Migration{"v27_replaygain_scan",
              [](Connection& file) {
                file.executeScript(R"(
ALTER TABLE tracks ADD COLUMN scannedLoudness DOUBLE;
ALTER TABLE tracks ADD COLUMN scannedTruePeak DOUBLE;
ALTER TABLE tracks ADD COLUMN loudnessScanVersion INTEGER;
CREATE TABLE trackWaveform (
    trackId INTEGER PRIMARY KEY REFERENCES tracks(id) ON DELETE CASCADE,
    peaks BLOB NOT NULL
);
)");
              }},

    // Some files have the column already.
    Migration{"v28_dynamic_range",
              [](Connection& file) {
                sqlite::Reader reader(file);
                const auto existing = reader.first<int>(
                    "SELECT 1 FROM pragma_table_info('tracks') "
                    "WHERE name = 'dynamicRange' COLLATE NOCASE");
                if (!existing) {
                  file.executeScript("ALTER TABLE tracks ADD COLUMN dynamicRange INTEGER");
                }
              }},

    // A mark without any result kept the track from being measured again.
    Migration{"v29_fix_corrupted_loudness_scan",
              [](Connection& file) {
                file.executeScript(R"(
UPDATE tracks SET loudnessScanVersion = NULL
WHERE loudnessScanVersion IS NOT NULL
  AND scannedLoudness IS NULL
  AND replayGainTrackGain IS NULL
  AND replayGainAlbumGain IS NULL;
)");
              }},

    Migration{"v30_departed_tracks", &createDepartedTracks},

    Migration{"v31_history_by_track", &gatherHistoryByTrack},
};

static_assert(kMigrations.size() == 32);

}  // namespace

std::span<const Migration> migrations() noexcept {
  return kMigrations;
}

}  // namespace velorin::schema
