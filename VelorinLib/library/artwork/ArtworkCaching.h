// Every album gets its picture in the artwork cache.
#pragma once

#include <cstddef>
#include <functional>
#include <string>

#include "library/DatabaseHandle.h"

namespace velorin {

class ArtworkCacheManager;
class Preferences;

/// The step after each scan. Opens neither picture nor audio file unless it is new to it or changed
/// since it was looked at, whether or not it had a picture; it only asks for their state. Emptying
/// the cache makes it look at all of them again. Any thread, one at a time; blocks for the disk.
class ArtworkCaching {
 public:
  using UpdateStatus = std::function<void(const std::string& text)>;
  /// Also asked by the threads that work for it.
  using IsCancelled = std::function<bool()>;

  /// Both outlive it.
  ArtworkCaching(const DatabaseHandle& database, ArtworkCacheManager& cache)
      : _database(database), _cache(cache) {}

  /// Pictures beside the files first, then the ones inside files, up to four at a time. A picture
  /// whose file was replaced is made again, and the album's colour is forgotten. What is out of
  /// reach is left for the next scan. Returns the number of albums that got a picture.
  std::size_t cacheArtwork(const UpdateStatus& updateStatus, const IsCancelled& isCancelled) const;

  /// The same once per installation, for a library from before there was a cache: at start-up, when
  /// no scan is needed, on a thread of the background. Does nothing when the preference
  /// "ArtworkCacheWarmedUp" is true, and sets it when it came to the end.
  void warmUp(Preferences& preferences, const IsCancelled& isCancelled) const;

 private:
  struct Outcome {
    std::size_t cached = 0;
    bool isComplete = false;  ///< neither cancelled nor without its database
    double seconds = 0;
  };

  Outcome fill(const IsCancelled& isCancelled) const;

  const DatabaseHandle& _database;
  ArtworkCacheManager& _cache;
};

}  // namespace velorin
