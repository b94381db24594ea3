// What is written to a single track without its file.
#pragma once

#include <string>
#include <vector>

#include "library/DatabaseHandle.h"
#include "records/Track.h"

namespace velorin {

/// A track that is not in the library is passed over. Any thread but the render thread; failures
/// throw VelorinDatabaseError.
class TrackEdits {
 public:
  explicit TrackEdits(const DatabaseHandle& database) : _database(database) {}

  /// Replaces the list; an empty one leaves the column NULL.
  void updateBookmarks(std::int64_t trackId, const std::vector<TrackBookmark>& bookmarks) const;

  /// Sets the lyrics, empty for none; the time-coded ones stay unless new ones are given.
  void updateLyrics(std::int64_t trackId, const std::optional<std::string>& lyrics,
                    const std::optional<std::string>& syncedLyrics) const;

 private:
  const DatabaseHandle& _database;
};

}  // namespace velorin
