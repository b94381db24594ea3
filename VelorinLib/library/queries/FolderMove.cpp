#include "library/queries/FolderMove.h"

#include "library/queries/PathPrefix.h"

namespace velorin {
namespace {

using sqlite::Reader;
using sqlite::Writer;
using Ids = std::vector<std::int64_t>;

constexpr std::size_t kRowsPerWrite = 5000;

void moveMusicFolder(Writer& writer, const std::string& from, const std::string& to) {
  // min() of two dates is NULL as soon as one of them is.
  const auto merged = writer.run(R"(
UPDATE musicFolders
SET lastScanned = min(lastScanned, (SELECT lastScanned FROM musicFolders WHERE path = ?))
WHERE path = ? AND EXISTS (SELECT 1 FROM musicFolders WHERE path = ?))",
                                 from, to, from);
  if (merged > 0) {
    writer.run("DELETE FROM musicFolders WHERE path = ?", from);
  } else {
    writer.run("UPDATE musicFolders SET path = ? WHERE path = ?", to, from);
  }
}

void moveProcessedCues(Writer& writer, const PathPrefix& from, const PathPrefix& to) {
  // Out of the table first: a sheet's new path may be the old one of another that moves too.
  std::vector<std::pair<std::string, double>> sheets;
  writer.each(
      "SELECT path, lastModified FROM processedCues WHERE path > ? AND path < ?",
      [&](const sqlite::Row& row) {
        sheets.emplace_back(row.get<std::string>(0), row.get<double>(1));
      },
      from.begin(), from.end());
  writer.run("DELETE FROM processedCues WHERE path > ? AND path < ?", from.begin(), from.end());
  for (const auto& [path, lastModified] : sheets) {
    writer.run("INSERT OR REPLACE INTO processedCues (path, lastModified) VALUES (?, ?)",
               to.begin() + path.substr(from.begin().size()), lastModified);
  }
}

Ids tracksBelow(Reader& reader, const PathPrefix& folder) {
  return reader.column<std::int64_t>("SELECT id FROM tracks WHERE filePath > ? AND filePath < ?",
                                     folder.begin(), folder.end());
}

/// Passes over tracks that have gone or moved since their ids were read.
std::int64_t moveTracks(Writer& writer, std::span<const std::int64_t> ids, const PathPrefix& from,
                        const PathPrefix& to) {
  std::int64_t moved = 0;
  for (const std::int64_t id : ids) {
    moved += writer.run(R"(
UPDATE tracks SET filePath = ? || substr(filePath, ?)
WHERE id = ? AND filePath > ? AND filePath < ?)",
                        to.begin(), from.restPosition(), id, from.begin(), from.end());
  }
  return moved;
}

}  // namespace

std::int64_t FolderMove::migrateFolderPath(const std::string& oldPath,
                                           const std::string& newPath) const {
  if (oldPath.empty() || newPath.empty()) {
    throw VelorinDatabaseError("a music folder cannot be moved from or to an empty path");
  }
  const PathPrefix from(oldPath);
  const PathPrefix to(newPath);
  if (from == to) return 0;

  // The rows that move are those that were there at the start. To look for more while they move
  // would find those that have arrived inside the old folder once again.
  const Ids ids = _database.write([&](Writer& writer) {
    moveMusicFolder(writer, from.folder(), to.folder());
    moveProcessedCues(writer, from, to);
    return tracksBelow(writer, from);
  });
  std::int64_t moved = 0;
  for (std::size_t next = 0; next < ids.size(); next += kRowsPerWrite) {
    const auto some = std::span(ids).subspan(next, std::min(kRowsPerWrite, ids.size() - next));
    moved += _database.write([&](Writer& writer) { return moveTracks(writer, some, from, to); });
  }
  return moved;
}

}  // namespace velorin
