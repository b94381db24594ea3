#include "library/queries/OrphanCleanup.h"

#include "library/listening/DepartedPins.h"

namespace velorin {
namespace {

using sqlite::Writer;
using Ids = std::vector<std::int64_t>;

/// One pass over the tracks, where asking for each album's best row would be a search and a sort
/// per album. The rank stands above all bits of an id, and of the row with the least sum SQLite
/// takes the format, as it promises for min(). Writes only what differs.
constexpr const char* kUpdateWeakestFormats = R"(
UPDATE albums SET worstFormat = weakest.format
FROM (
    SELECT albumId, format,
           min((CASE upper(format)
                WHEN 'DSD' THEN 3 WHEN 'FLAC' THEN 2 WHEN 'ALAC' THEN 2
                WHEN 'AIFF' THEN 2 WHEN 'WAV' THEN 2 ELSE 1 END << 60) + id)
    FROM tracks
    WHERE {}
    GROUP BY albumId
) AS weakest
WHERE weakest.albumId = albums.id AND albums.worstFormat IS NOT weakest.format)";

constexpr const char* kAlbumsWithoutTracks = R"(
SELECT id FROM albums
WHERE {} AND NOT EXISTS (SELECT 1 FROM tracks WHERE tracks.albumId = albums.id))";

constexpr const char* kArtistsWithoutTracks = R"(
SELECT id FROM artists
WHERE {} AND NOT EXISTS (SELECT 1 FROM tracks WHERE tracks.artistId = artists.id))";

// An album's artist may have no track of its own. Each album has tracks by now, and to delete its
// artist would delete them too.
constexpr const char* kDeleteArtist = R"(
DELETE FROM artists
WHERE id = ? AND NOT EXISTS (SELECT 1 FROM albums WHERE albums.artistId = artists.id))";

// No index of the schema begins with albums.artistId, so that each artist costs a walk over all
// albums (10 ms at 90,000), here and for the foreign key. Making an index for the length of the
// transaction costs as much as this many artists.
constexpr std::size_t kArtistsWorthAnIndex = 4;

void deleteArtists(Writer& writer, const Ids& ids) {
  const bool indexed = ids.size() > kArtistsWorthAnIndex;
  if (indexed) writer.run("CREATE INDEX albums_of_artists ON albums(artistId)");
  for (const std::int64_t id : ids) {
    parkArtistPin(writer, id);
    writer.run(kDeleteArtist, id);
  }
  if (indexed) writer.run("DROP INDEX albums_of_artists");
}

void deleteAlbums(Writer& writer, const Ids& ids) {
  for (const std::int64_t id : ids) {
    parkAlbumPin(writer, id);
    writer.run("DELETE FROM albums WHERE id = ?", id);
  }
}

/// A statement with its condition: the column is one of a slice of ids.
std::string among(const char* statement, const char* column, std::size_t count) {
  return fmt::format(fmt::runtime(statement),
                     fmt::format("{} IN ({})", column, sqlite::placeholders(count)));
}

/// Those of these ids that a statement finds.
Ids orphansAmong(Writer& writer, const char* statement, const Ids& ids) {
  Ids orphans;
  sqlite::forEachSlice(ids, [&](std::span<const std::int64_t> slice) {
    const Ids found = writer.column<std::int64_t>(among(statement, "id", slice.size()), slice);
    orphans.insert(orphans.end(), found.begin(), found.end());
  });
  return orphans;
}

/// A statement without a condition.
std::string everywhere(const char* statement) {
  return fmt::format(fmt::runtime(statement), "TRUE");
}

}  // namespace

void cleanUpOrphans(Writer& writer) {
  writer.run(everywhere(kUpdateWeakestFormats));
  deleteAlbums(writer, writer.column<std::int64_t>(everywhere(kAlbumsWithoutTracks)));
  deleteArtists(writer, writer.column<std::int64_t>(everywhere(kArtistsWithoutTracks)));
}

void cleanUpOrphans(Writer& writer, const Bereaved& parents) {
  const Ids albums(parents.albums.begin(), parents.albums.end());
  const Ids artists(parents.artists.begin(), parents.artists.end());
  sqlite::forEachSlice(albums, [&](std::span<const std::int64_t> slice) {
    writer.run(among(kUpdateWeakestFormats, "albumId", slice.size()), slice);
  });
  deleteAlbums(writer, orphansAmong(writer, kAlbumsWithoutTracks, albums));
  deleteArtists(writer, orphansAmong(writer, kArtistsWithoutTracks, artists));
}

}  // namespace velorin
