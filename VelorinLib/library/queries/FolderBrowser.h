// The library seen as folders.
#pragma once

#include <string>
#include <vector>

#include "library/DatabaseHandle.h"
#include "library/queries/ListingCache.h"
#include "records/TrackInfo.h"

namespace velorin {

struct FolderSummary {
  std::int64_t trackCount = 0;
  double totalDuration = 0;  ///< seconds

  bool operator==(const FolderSummary&) const = default;
};

struct Subfolder {
  std::string folderName;
  std::string folderPath;       ///< with a '/' at its end
  std::int64_t trackCount = 0;  ///< at any depth

  bool operator==(const Subfolder&) const = default;
};

/// A folder is given by its path in native bytes, with or without a '/' at its end; the empty path
/// is the root. What is inside is told from the paths of the tracks: a folder without tracks does
/// not show. CUE tracks count one by one. Any thread but the render thread; failures throw
/// VelorinDatabaseError.
class FolderBrowser {
 public:
  explicit FolderBrowser(const DatabaseHandle& database) : _database(database) {}

  /// Of all tracks inside, at any depth.
  FolderSummary folderSummary(const std::string& folder) const;

  /// The folders directly inside, by name without regard to the case of A to Z. What file systems
  /// and network storage keep for themselves ("@eaDir", "$RECYCLE.BIN" …) is left out.
  std::vector<Subfolder> subfolders(const std::string& folder) const;

  /// The tracks directly inside, or at any depth, by path without regard to the case of A to Z,
  /// the tracks of a CUE sheet in their order. A limit below 0 means all.
  std::vector<TrackInfo> fetchFolderTracks(const std::string& folder, bool recursive,
                                           std::int64_t limit = -1, std::int64_t offset = 0);

 private:
  const DatabaseHandle& _database;
  ListingCache<std::string, std::int64_t> _orders;  ///< ids of all tracks below a folder
};

}  // namespace velorin
