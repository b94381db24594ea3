#include "library/queries/TrackRemoval.h"

#include "library/queries/PathPrefix.h"

namespace velorin {
namespace {

using sqlite::Writer;
using Ids = std::vector<std::int64_t>;

/// Deletes the tracks with these ids and returns how many there were.
std::int64_t deleteRows(Writer& writer, const Ids& ids) {
  std::int64_t deleted = 0;
  sqlite::forEachSlice(ids, [&](std::span<const std::int64_t> slice) {
    const std::string list = sqlite::placeholders(slice.size());
    writer.run("DELETE FROM tracks_fts WHERE rowid IN (" + list + ")", slice);
    deleted += writer.run("DELETE FROM tracks WHERE id IN (" + list + ")", slice);
  });
  return deleted;
}

/// One pass over the tracks, where asking for each album's best row would be a search and a sort
/// per album. The rank stands above all bits of an id, and of the row with the least sum SQLite
/// takes the format, as it promises for min(). Writes only what differs.
constexpr const char* kWeakestFormats = R"(
UPDATE albums SET worstFormat = weakest.format
FROM (
    SELECT albumId, format,
           min((CASE upper(format)
                WHEN 'DSD' THEN 3 WHEN 'FLAC' THEN 2 WHEN 'ALAC' THEN 2
                WHEN 'AIFF' THEN 2 WHEN 'WAV' THEN 2 ELSE 1 END << 60) + id)
    FROM tracks
    GROUP BY albumId
) AS weakest
WHERE weakest.albumId = albums.id AND albums.worstFormat IS NOT weakest.format)";

constexpr const char* kAlbumsWithoutTracks = R"(
SELECT id FROM albums
WHERE NOT EXISTS (SELECT 1 FROM tracks WHERE tracks.albumId = albums.id))";

// The artist of an album may have no track of its own there. Its album has tracks by now, and to
// delete the artist would delete them too.
constexpr const char* kArtistsWithoutTracks = R"(
SELECT id FROM artists
WHERE NOT EXISTS (SELECT 1 FROM tracks WHERE tracks.artistId = artists.id)
  AND id NOT IN (SELECT artistId FROM albums))";

// Deleting an artist makes SQLite look for its albums, and no index of the schema begins with
// albums.artistId: each artist costs a walk over all albums (10 ms at 90,000). Making an index for
// the length of the transaction costs as much as this many artists.
constexpr std::size_t kArtistsWorthAnIndex = 4;

void deleteArtists(Writer& writer, const Ids& ids) {
  const bool indexed = ids.size() > kArtistsWorthAnIndex;
  if (indexed) writer.run("CREATE INDEX albums_of_artists ON albums(artistId)");
  for (const std::int64_t id : ids) writer.run("DELETE FROM artists WHERE id = ?", id);
  if (indexed) writer.run("DROP INDEX albums_of_artists");
}

}  // namespace

void TrackRemoval::setSimilarityIndex(std::shared_ptr<SimilarityIndexListener> listener) {
  const MutexLock lock(_lock);
  _similarityIndex.swap(listener);
}

template <class Call>
void TrackRemoval::tellSimilarityIndex(Call&& call) const {
  std::shared_ptr<SimilarityIndexListener> listener;
  {
    const MutexLock lock(_lock);
    listener = _similarityIndex;
  }
  if (listener) call(*listener);
}

std::int64_t TrackRemoval::deleteTracks(const std::vector<std::string>& filePaths) const {
  return deletePaths(filePaths, Rows::all);
}

std::int64_t TrackRemoval::deleteStandaloneTracks(const std::vector<std::string>& filePaths) const {
  return deletePaths(filePaths, Rows::standalone);
}

std::int64_t TrackRemoval::deleteCueTracks(const std::vector<std::string>& filePaths) const {
  return deletePaths(filePaths, Rows::cue);
}

std::int64_t TrackRemoval::deletePaths(const std::vector<std::string>& filePaths, Rows rows) const {
  const std::string tail = rows == Rows::all          ? ""
                           : rows == Rows::standalone ? " AND cueStartTime IS NULL"
                                                      : " AND cueStartTime IS NOT NULL";
  const Ids ids = _database.write([&](Writer& writer) {
    Ids found;
    sqlite::forEachSlice(filePaths, [&](std::span<const std::string> slice) {
      writer.each(
          "SELECT id FROM tracks WHERE filePath IN (" + sqlite::placeholders(slice.size()) + ")" +
              tail,
          [&](const sqlite::Row& row) { found.push_back(row.get<std::int64_t>(0)); }, slice);
    });
    // A path that was given twice may have been found twice.
    std::sort(found.begin(), found.end());
    found.erase(std::unique(found.begin(), found.end()), found.end());
    deleteRows(writer, found);
    return found;
  });
  if (!ids.empty()) tellSimilarityIndex([&](auto& index) { index.tracksRemoved(ids); });
  return static_cast<std::int64_t>(ids.size());
}

std::int64_t TrackRemoval::deleteTracks(const Ids& ids) const {
  const auto deleted = _database.write([&](Writer& writer) { return deleteRows(writer, ids); });
  tellSimilarityIndex([&](auto& index) { index.tracksRemoved(ids); });
  cleanupOrphans();
  return deleted;
}

void TrackRemoval::removeFolder(const std::string& path) const {
  if (path.empty()) throw VelorinDatabaseError("a music folder without a path cannot be removed");
  const PathPrefix prefix(path);
  const Ids ids = _database.write([&](Writer& writer) {
    Ids inside = writer.column<std::int64_t>(
        "SELECT id FROM tracks WHERE filePath > ? AND filePath < ? ORDER BY id", prefix.begin(),
        prefix.end());
    deleteRows(writer, inside);
    writer.run("DELETE FROM musicFolders WHERE path = ?", prefix.folder());
    return inside;
  });
  tellSimilarityIndex([&](auto& index) { index.tracksRemoved(ids); });
  cleanupOrphans();
}

void TrackRemoval::cleanupOrphans() const {
  _database.write([](Writer& writer) {
    writer.run(kWeakestFormats);
    for (const auto id : writer.column<std::int64_t>(kAlbumsWithoutTracks)) {
      writer.run("DELETE FROM albums WHERE id = ?", id);
    }
    deleteArtists(writer, writer.column<std::int64_t>(kArtistsWithoutTracks));
  });
}

void TrackRemoval::clearLibrary() const {
  _database.write([](Writer& writer) {
    for (const char* table : {"tracks_fts", "playlist_tracks", "playlists", "tracks", "albums",
                              "artists", "pinnedItems", "sqlite_sequence"}) {
      writer.run(std::string("DELETE FROM ") + table);
    }
  });
  tellSimilarityIndex([](auto& index) { index.libraryCleared(); });
}

}  // namespace velorin
