#include "library/schema/NoCaseMigration.h"

namespace velorin::schema {
namespace {

// Which artist and which album each one ends as. The albums come out of their artists' merging:
// "Help!" of "Beatles" and "Help!" of "BEATLES" are twins, too.
constexpr std::string_view kFindTwins = R"(
CREATE TEMP TABLE keptArtists AS
SELECT id, MIN(id) OVER (PARTITION BY name COLLATE NOCASE) AS keepId
FROM artists;

CREATE UNIQUE INDEX temp.keptArtistsById ON keptArtists(id);

CREATE TEMP TABLE keptAlbums AS
SELECT albums.id,
       MIN(albums.id) OVER (
           PARTITION BY keptArtists.keepId, albums.title COLLATE NOCASE) AS keepId
FROM albums
JOIN keptArtists ON keptArtists.id = albums.artistId;

DELETE FROM keptArtists WHERE id = keepId;
DELETE FROM keptAlbums WHERE id = keepId;

CREATE UNIQUE INDEX temp.keptAlbumsById ON keptAlbums(id);
)";

// Twin albums go before their artists are merged, or the move of an album to the kept artist would
// meet a twin of the same title.
constexpr std::string_view kMerge = R"(
UPDATE tracks
SET albumId = (SELECT keepId FROM keptAlbums WHERE id = tracks.albumId)
WHERE albumId IN (SELECT id FROM keptAlbums);

DELETE FROM albums WHERE id IN (SELECT id FROM keptAlbums);

UPDATE albums
SET artistId = (SELECT keepId FROM keptArtists WHERE id = albums.artistId)
WHERE artistId IN (SELECT id FROM keptArtists);

UPDATE tracks
SET artistId = (SELECT keepId FROM keptArtists WHERE id = tracks.artistId)
WHERE artistId IN (SELECT id FROM keptArtists);

DELETE FROM artists WHERE id IN (SELECT id FROM keptArtists);

DROP TABLE keptArtists;
DROP TABLE keptAlbums;
)";

// New table, copy, drop, rename: the one order in which the REFERENCES clauses of other tables keep
// naming the table that they named. The counter of used ids moves along.
constexpr std::string_view kRebuild = R"(
CREATE TABLE artists_new (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    name TEXT NOT NULL UNIQUE COLLATE NOCASE
);
INSERT INTO artists_new (id, name) SELECT id, name FROM artists;
DELETE FROM sqlite_sequence WHERE name = 'artists_new';
INSERT INTO sqlite_sequence (name, seq)
SELECT 'artists_new', seq FROM sqlite_sequence WHERE name = 'artists';
DROP TABLE artists;
ALTER TABLE artists_new RENAME TO artists;

CREATE TABLE albums_new (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    title TEXT NOT NULL COLLATE NOCASE,
    artistId INTEGER NOT NULL REFERENCES artists(id) ON DELETE CASCADE,
    year INTEGER,
    artworkPath TEXT,
    genre TEXT,
    UNIQUE (title, artistId)
);
INSERT INTO albums_new (id, title, artistId, year, artworkPath, genre)
SELECT id, title, artistId, year, artworkPath, genre FROM albums;
DELETE FROM sqlite_sequence WHERE name = 'albums_new';
INSERT INTO sqlite_sequence (name, seq)
SELECT 'albums_new', seq FROM sqlite_sequence WHERE name = 'albums';
DROP TABLE albums;
ALTER TABLE albums_new RENAME TO albums;
)";

}  // namespace

void mergeCaseTwins(sqlite::Connection& connection) {
  connection.executeScript(kFindTwins);
  connection.executeScript(kMerge);
  connection.executeScript(kRebuild);
}

}  // namespace velorin::schema
