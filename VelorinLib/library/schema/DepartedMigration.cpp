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

}  // namespace velorin::schema
