#include "library/queries/MusicFolders.h"

#include "library/queries/PathPrefix.h"

namespace velorin {

using sqlite::Reader;
using sqlite::Writer;

void MusicFolders::addFolder(const std::string& path) const {
  if (path.empty()) throw VelorinDatabaseError("a music folder needs a path");
  _database.write([&](Writer& writer) {
    writer.run("INSERT OR IGNORE INTO musicFolders (path, lastScanned) VALUES (?, ?)",
               PathPrefix(path).folder(), std::chrono::system_clock::now());
  });
}

std::vector<std::string> MusicFolders::getFolders() const {
  return _database.read([](Reader& reader) {
    return reader.column<std::string>("SELECT path FROM musicFolders ORDER BY id");
  });
}

std::optional<sqlite::TimePoint> MusicFolders::getLastScanned(const std::string& path) const {
  return _database.read([&](Reader& reader) -> std::optional<sqlite::TimePoint> {
    return reader
        .first<std::optional<sqlite::TimePoint>>(
            "SELECT lastScanned FROM musicFolders WHERE path = ?", PathPrefix(path).folder())
        .value_or(std::nullopt);
  });
}

void MusicFolders::updateLastScanned(const std::string& path) const {
  _database.write([&](Writer& writer) {
    writer.run("UPDATE musicFolders SET lastScanned = ? WHERE path = ?",
               std::chrono::system_clock::now(), PathPrefix(path).folder());
  });
}

void MusicFolders::markFoldersForFullScan(const std::vector<std::string>& paths) const {
  _database.write([&](Writer& writer) {
    for (const std::string& path : paths) {
      writer.run("UPDATE musicFolders SET lastScanned = NULL WHERE path = ?",
                 PathPrefix(path).folder());
    }
  });
}

bool MusicFolders::hasFolderNeedingFullScan() const {
  return _database.read([](Reader& reader) {
    return reader.first<bool>("SELECT EXISTS(SELECT 1 FROM musicFolders WHERE lastScanned IS NULL)")
        .value_or(false);
  });
}

std::map<std::string, std::int64_t> MusicFolders::folderTrackCounts() const {
  return _database.read([](Reader& reader) {
    std::map<std::string, std::int64_t> counts;
    for (auto& path : reader.column<std::string>("SELECT path FROM musicFolders")) {
      const PathPrefix prefix(path);
      counts[path] = reader
                         .first<std::int64_t>(
                             "SELECT COUNT(*) FROM tracks WHERE filePath > ? AND filePath < ?",
                             prefix.begin(), prefix.end())
                         .value_or(0);
    }
    return counts;
  });
}

}  // namespace velorin
