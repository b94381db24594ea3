// The folders that the library watches.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "library/DatabaseHandle.h"

namespace velorin {

/// A folder's lastScanned doubles as a crash flag: it is empty from before a scan until after it,
/// so that a scan that was cut short is repeated. How a folder is removed: see TrackRemoval.
///
/// Paths are native bytes, with or without a '/' at their end, and are kept without. Any thread but
/// the render thread; failures throw VelorinDatabaseError.
class MusicFolders {
 public:
  explicit MusicFolders(const DatabaseHandle& database) : _database(database) {}

  /// Does nothing when the folder is there already. An empty path is refused: it would stand for
  /// the whole file system.
  void addFolder(const std::string& path) const;
  /// The paths, in the order in which they were added.
  std::vector<std::string> getFolders() const;

  /// Empty when the folder needs a full scan, and when it is not in the library.
  std::optional<sqlite::TimePoint> getLastScanned(const std::string& path) const;
  /// The folder was scanned to its end, now.
  void updateLastScanned(const std::string& path) const;
  void markFoldersForFullScan(const std::vector<std::string>& paths) const;
  bool hasFolderNeedingFullScan() const;

  /// Path of each folder and the number of tracks below it, at any depth. A folder inside another
  /// counts in both.
  std::map<std::string, std::int64_t> folderTrackCounts() const;

 private:
  const DatabaseHandle& _database;
};

}  // namespace velorin
