// An edit of tags, carried into the rows of the library.
#pragma once

#include "library/DatabaseHandle.h"
#include "library/metadata/TagChanges.h"
#include "library/queries/OrphanCleanup.h"

namespace velorin {

/// What a file is like after its tags were written.
struct FileStamp {
  std::int64_t size = 0;  ///< bytes
  std::chrono::system_clock::time_point lastModified;
};

/// Any thread but the render thread; failures throw VelorinDatabaseError, and the library is as
/// before.
class TagUpdate {
 public:
  explicit TagUpdate(const DatabaseHandle& database) : _database(database) {}

  /// Changes the row of a track, in one transaction: its fields, its artist and album (found by
  /// name, else made; a new album takes over cover, year and genre of the old one), the year of the
  /// album, and the entry in the full-text index where title, artist or album changed. An artist or
  /// album without a name is the unknown one, a title without one the file's name without
  /// extension, as a scan would have it.
  ///
  /// The stamp, where a file was written, goes to every row of that file, so that the next scan
  /// does not take it for changed by others.
  ///
  /// Returns the albums and artists that gained or lost a track, for cleanUp().
  Bereaved apply(std::int64_t trackId, const TagChanges& changes,
                 const std::optional<FileStamp>& stamp) const;

  /// Whether the library has tracks of this file, by its path as the library holds it, and the one
  /// that is the whole file rather than a part that a CUE sheet cuts out.
  bool knowsFile(const std::string& path) const;
  std::optional<std::int64_t> wholeFileTrack(const std::string& path) const;

  /// The stamp alone, for all rows of a file.
  void stampFile(const std::string& path, const FileStamp& stamp) const;

  /// Once behind a number of edits: albums and artists left without tracks go.
  void cleanUp(const Bereaved& parents) const;

 private:
  const DatabaseHandle& _database;
};

}  // namespace velorin
