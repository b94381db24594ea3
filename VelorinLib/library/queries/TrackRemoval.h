// Tracks leave the library.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "foundation/Mutex.h"
#include "library/DatabaseHandle.h"
#include "library/SimilarityIndexListener.h"

namespace velorin {

/// Each operation takes the tracks' rows, all that hangs on them (history, places in playlists,
/// analysis) and their entries in the full-text index in one transaction: all or nothing. Files
/// are not touched. Albums and artists that have no track left stay until cleanupOrphans, except
/// where an operation says that it cleans up.
///
/// What the listener did to a track is parked when its file has changed or gone, so that it is
/// there again when the file is (listening/DepartedTracks.h): with all operations but those that
/// say otherwise.
///
/// Any thread but the render thread, never from inside another database operation. Failures throw
/// VelorinDatabaseError. Paths are native bytes.
class TrackRemoval {
 public:
  explicit TrackRemoval(const DatabaseHandle& database) : _database(database) {}

  /// Who hears of what was removed, from now on; empty for nobody.
  void setSimilarityIndex(std::shared_ptr<SimilarityIndexListener> listener);

  /// All rows of these files, whole or CUE tracks. Returns how many there were, as do the others.
  std::int64_t deleteTracks(const std::vector<std::string>& filePaths) const;
  /// Only the rows that stand for a whole file.
  std::int64_t deleteStandaloneTracks(const std::vector<std::string>& filePaths) const;
  /// Only the CUE tracks.
  std::int64_t deleteCueTracks(const std::vector<std::string>& filePaths) const;
  /// The listener's own wish: nothing is parked. Cleans up the albums and artists concerned, in a
  /// transaction of its own.
  std::int64_t deleteTracks(const std::vector<std::int64_t>& ids) const;

  /// The music folder and all tracks below it, at any depth. Cleans up the albums and artists
  /// concerned, in a transaction of its own. An empty path is refused.
  void removeFolder(const std::string& path) const;

  /// Puts all albums right and deletes the orphans of the whole library, see OrphanCleanup.h.
  void cleanupOrphans() const;

  /// Empties tracks, albums, artists, playlists and pins, and all that hangs on them. The music
  /// folders and the list of processed CUE sheets stay. Nothing is parked, and what was parked is
  /// dropped. Ids begin at 1 again; whoever keeps ids of tracks, such as those of favourites
  /// (ListeningKeeper::afterClear), drops them.
  void clearLibrary() const;

  /// Empties tracks, albums and artists, and all that hangs on them, for a scan that makes them
  /// anew. Playlists and pins stay, and no id is given a second time.
  void clearForRescan() const;

 private:
  enum class Rows { all, standalone, cue };
  std::int64_t deletePaths(const std::vector<std::string>& filePaths, Rows rows) const;

  template <class Write>
  void clear(Write&& write) const;
  template <class Call>
  void tellSimilarityIndex(Call&& call) const;

  const DatabaseHandle& _database;
  mutable Mutex _lock;
  std::shared_ptr<SimilarityIndexListener> _similarityIndex GUARDED_BY(_lock);
};

}  // namespace velorin
