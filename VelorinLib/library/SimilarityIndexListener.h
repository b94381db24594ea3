// What the library tells an index that is kept beside it, on a higher floor.
#pragma once

#include <cstdint>
#include <vector>

namespace velorin {

/// Implemented by the index over the tracks' embeddings. Called on the thread that changed the
/// library, after the change is committed and outside any database operation, so that an
/// implementation may wait for a queue of its own, even one whose work reads the library.
class SimilarityIndexListener {
 public:
  virtual ~SimilarityIndexListener() = default;

  /// These tracks are gone; some may never have been in the index.
  virtual void tracksRemoved(const std::vector<std::int64_t>& ids) noexcept = 0;
  /// All tracks are gone, and their ids may be given out again.
  virtual void libraryCleared() noexcept = 0;
};

}  // namespace velorin
