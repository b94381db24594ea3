#include "library/schema/DepartedMigration.h"

namespace velorin::schema {

// "trackId" of a departed track is the id of the row that went. It is below 0 where that row is
// still there but its file holds other audio now. "lastId" is the highest id that any
// track had had by then, "searchedUpTo" the highest of those that it was compared with since.
//
// What was found out about a sound stands beside the size and date that its file had then: where
// the track's own are others, the file was written since. A sound without a hash could not be read.
//
// Of a million tracks that are parked at once, foreign keys to "departedTracks" would take as long
// to check as the parking: whoever deletes there deletes what belongs to it.
//
// The partial index holds the few tracks of a large library that a listener did something to.
void createDepartedTracks(sqlite::Connection& file) {
  file.executeScript(R"(
CREATE TABLE departedTracks (
    trackId INTEGER PRIMARY KEY,
    filePath TEXT NOT NULL,
    cueStartTime DOUBLE,
    fileSize INTEGER,
    lastModified DATETIME,
    duration DOUBLE NOT NULL,
    title TEXT NOT NULL,
    artistName TEXT NOT NULL,
    albumTitle TEXT NOT NULL,
    totalPlays INTEGER NOT NULL,
    totalSkips INTEGER NOT NULL,
    rating INTEGER,
    bookmarks TEXT,
    syncedLyrics TEXT,
    soundHash TEXT,
    soundFileSize INTEGER,
    soundLastModified DATETIME,
    departedAt DATETIME NOT NULL,
    lastId INTEGER NOT NULL,
    searchedUpTo INTEGER NOT NULL DEFAULT 0
);
CREATE INDEX idx_departedTracks_filePath ON departedTracks(filePath, cueStartTime);
CREATE INDEX idx_departedTracks_searchedUpTo ON departedTracks(searchedUpTo);
CREATE TABLE departedHistory (
    id INTEGER PRIMARY KEY,
    trackId INTEGER NOT NULL,
    playedAt DATETIME NOT NULL,
    duration REAL NOT NULL,
    skipped INTEGER NOT NULL
);
CREATE INDEX idx_departedHistory_track ON departedHistory(trackId);
CREATE TABLE departedPlaces (
    trackId INTEGER NOT NULL,
    playlistId INTEGER NOT NULL REFERENCES playlists(id) ON DELETE CASCADE,
    position INTEGER NOT NULL,
    createdAt DATETIME NOT NULL,
    PRIMARY KEY (trackId, playlistId)
);
CREATE INDEX idx_departedPlaces_playlist ON departedPlaces(playlistId);
CREATE TABLE departedPins (
    type TEXT NOT NULL,
    referenceId TEXT NOT NULL,
    artistName TEXT NOT NULL COLLATE NOCASE,
    albumTitle TEXT NOT NULL COLLATE NOCASE,
    PRIMARY KEY (type, referenceId)
);
CREATE TABLE favoriteTracks (
    trackId INTEGER PRIMARY KEY
);
CREATE TABLE trackSuccessions (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    oldId INTEGER NOT NULL,
    newId INTEGER NOT NULL,
    happenedAt DATETIME NOT NULL
);
CREATE INDEX idx_trackSuccessions_oldId ON trackSuccessions(oldId);
CREATE TABLE trackSounds (
    trackId INTEGER PRIMARY KEY REFERENCES tracks(id) ON DELETE CASCADE,
    soundHash TEXT,
    duration DOUBLE NOT NULL,
    fileSize INTEGER,
    lastModified DATETIME
);
CREATE INDEX idx_tracks_listened ON tracks(id)
WHERE totalPlays > 0 OR totalSkips > 0 OR rating IS NOT NULL OR bookmarks IS NOT NULL;
)");
}

// One index holds all that is asked about the plays of a track, in place of one that led to the
// rows one by one: a walk over a million tracks took forty seconds on a slow disk. For the same
// reason what is parked of a track's history lies together.
//
// "fileSize" of a sound is NULL where the file was written since: these are few, and are found
// without a walk over all.
void gatherHistoryByTrack(sqlite::Connection& file) {
  file.executeScript(R"(
CREATE INDEX idx_history_track ON playbackHistory(trackId, playedAt, skipped, duration);
DROP INDEX idx_history_trackId;
ALTER TABLE departedHistory RENAME TO departedHistoryById;
CREATE TABLE departedHistory (
    trackId INTEGER NOT NULL,
    id INTEGER NOT NULL,
    playedAt DATETIME NOT NULL,
    duration REAL NOT NULL,
    skipped INTEGER NOT NULL,
    PRIMARY KEY (trackId, id)
) WITHOUT ROWID;
INSERT INTO departedHistory (trackId, id, playedAt, duration, skipped)
SELECT trackId, id, playedAt, duration, skipped FROM departedHistoryById ORDER BY trackId, id;
DROP TABLE departedHistoryById;
CREATE INDEX idx_trackSounds_outdated ON trackSounds(trackId) WHERE fileSize IS NULL;
UPDATE trackSounds SET fileSize = NULL
FROM tracks
WHERE tracks.id = trackSounds.trackId
  AND (trackSounds.fileSize IS NOT tracks.fileSize
       OR trackSounds.lastModified IS NOT tracks.lastModified);
)");
}

}  // namespace velorin::schema
