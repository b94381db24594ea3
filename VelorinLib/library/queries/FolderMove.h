// A music folder is found under another path, and its tracks go with it.
#pragma once

#include <string>

#include "library/DatabaseHandle.h"

namespace velorin {

/// Any thread but the render thread, never from inside another database operation. Failures throw
/// VelorinDatabaseError. Paths are native bytes, with or without a '/' at their end.
class FolderMove {
 public:
  explicit FolderMove(const DatabaseHandle& database) : _database(database) {}

  /// Gives every track and every processed CUE sheet below the old folder the same place below the
  /// new one, so that ids, play counts and playlists stay. Either folder may lie inside the other:
  /// no row moves twice.
  ///
  /// Where the new path is a music folder already, the two become one, which keeps the older of the
  /// two scan dates, or none where one needs a full scan. Tracks that the library holds there
  /// already stay beside those that arrive, since either may have been played or put in playlists;
  /// a processed CUE sheet takes the place of one with its new path.
  ///
  /// The folder and its sheets move in a first write, the tracks in further ones of at most 5000
  /// rows, so that other work gets its turn between them. A failure between two writes leaves the
  /// rest under the old path, from where a second call with the same paths takes it (unless the new
  /// folder lies inside the old one, where what has arrived would move once more).
  /// Returns the number of tracks moved.
  std::int64_t migrateFolderPath(const std::string& oldPath, const std::string& newPath) const;

 private:
  const DatabaseHandle& _database;
};

}  // namespace velorin
