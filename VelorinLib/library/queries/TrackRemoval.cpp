#include "library/queries/TrackRemoval.h"

#include "library/listening/DepartedPins.h"
#include "library/listening/DepartedTracks.h"
#include "library/queries/OrphanCleanup.h"
#include "library/queries/PathPrefix.h"

namespace velorin {
namespace {

using sqlite::Writer;
using Ids = std::vector<std::int64_t>;

/// What becomes of what the listener did to the tracks.
enum class Listening { parked, forgotten };

/// Deletes the tracks with these ids and returns how many there were.
std::int64_t deleteRows(Writer& writer, const Ids& ids, Listening listening,
                        Bereaved* parents = nullptr) {
  std::int64_t deleted = 0;
  sqlite::forEachSlice(ids, [&](std::span<const std::int64_t> slice) {
    const std::string list = " IN (" + sqlite::placeholders(slice.size()) + ")";
    if (parents != nullptr) {
      writer.each(
          "SELECT albumId, artistId FROM tracks WHERE id" + list,
          [&](const sqlite::Row& row) {
            parents->albums.insert(row.get<std::int64_t>(0));
            parents->artists.insert(row.get<std::int64_t>(1));
          },
          slice);
    }
    if (listening == Listening::parked) parkTracks(writer, slice);
    writer.run("DELETE FROM tracks_fts WHERE rowid" + list, slice);
    deleted += writer.run("DELETE FROM tracks WHERE id" + list, slice);
  });
  return deleted;
}

/// Empties the table and those with a foreign key to it, at any remove.
void emptyWithDependents(Writer& writer, const std::string& table) {
  const auto tables = writer.column<std::string>(R"(
WITH RECURSIVE doomed(name) AS (
    VALUES (?)
    UNION
    SELECT tables.name
    FROM doomed, sqlite_master AS tables, pragma_foreign_key_list(tables.name) AS keys
    WHERE tables.type = 'table' AND keys."table" = doomed.name
)
SELECT name FROM doomed)",
                                                 table);
  for (const std::string& each : tables) writer.run("DELETE FROM " + each);
}

/// An empty full-text index in place of the full one, which could only be emptied word by word.
void renewFullTextIndex(Writer& writer) {
  const auto definition =
      writer.first<std::string>("SELECT sql FROM sqlite_master WHERE name = 'tracks_fts'");
  writer.run("DROP TABLE tracks_fts");
  writer.run(definition.value_or(""));
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
    deleteRows(writer, found, Listening::parked);
    return found;
  });
  if (!ids.empty()) tellSimilarityIndex([&](auto& index) { index.tracksRemoved(ids); });
  return static_cast<std::int64_t>(ids.size());
}

std::int64_t TrackRemoval::deleteTracks(const Ids& ids) const {
  Bereaved parents;
  const auto deleted = _database.write(
      [&](Writer& writer) { return deleteRows(writer, ids, Listening::forgotten, &parents); });
  tellSimilarityIndex([&](auto& index) { index.tracksRemoved(ids); });
  _database.write([&](Writer& writer) { cleanUpOrphans(writer, parents); });
  return deleted;
}

void TrackRemoval::removeFolder(const std::string& path) const {
  if (path.empty()) throw VelorinDatabaseError("a music folder without a path cannot be removed");
  const PathPrefix prefix(path);
  Bereaved parents;
  const Ids ids = _database.write([&](Writer& writer) {
    Ids inside = writer.column<std::int64_t>(
        "SELECT id FROM tracks WHERE filePath > ? AND filePath < ? ORDER BY id", prefix.begin(),
        prefix.end());
    deleteRows(writer, inside, Listening::parked, &parents);
    writer.run("DELETE FROM musicFolders WHERE path = ?", prefix.folder());
    return inside;
  });
  tellSimilarityIndex([&](auto& index) { index.tracksRemoved(ids); });
  _database.write([&](Writer& writer) { cleanUpOrphans(writer, parents); });
}

void TrackRemoval::cleanupOrphans() const {
  _database.write([](Writer& writer) { cleanUpOrphans(writer); });
}

template <class Write>
void TrackRemoval::clear(Write&& write) const {
  const auto queue = _database.dbQueue();
  if (!queue) throw VelorinDatabaseError(kDatabaseUnavailable);
  // With foreign keys on, SQLite would look for what hangs on each of the tracks: at a million,
  // twelve seconds instead of two.
  queue->writeWithoutForeignKeys(write);
  tellSimilarityIndex([](auto& index) { index.libraryCleared(); });
}

void TrackRemoval::clearLibrary() const {
  clear([](Writer& writer) {
    renewFullTextIndex(writer);
    emptyWithDependents(writer, "artists");
    emptyWithDependents(writer, "playlists");
    forgetDeparted(writer);
    writer.run("DELETE FROM pinnedItems");
    // The preferences know how many successions of ids they have followed.
    writer.run("DELETE FROM sqlite_sequence WHERE name != 'trackSuccessions'");
  });
}

void TrackRemoval::clearForRescan() const {
  clear([](Writer& writer) {
    parkAllTracks(writer);
    parkAllPins(writer);
    renewFullTextIndex(writer);
    emptyWithDependents(writer, "artists");
  });
}

}  // namespace velorin
