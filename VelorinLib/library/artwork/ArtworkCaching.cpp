#include "library/artwork/ArtworkCaching.h"

#include <atomic>
#include <chrono>

#include "foundation/Log.h"
#include "foundation/OperationQueue.h"
#include "foundation/Preferences.h"
#include "foundation/Text.h"
#include "library/artwork/ArtworkCacheManager.h"
#include "library/artwork/ArtworkSources.h"
#include "library/queries/AlbumArtwork.h"
#include "library/sqlite/DatabaseError.h"

namespace velorin {
namespace {

constexpr std::size_t kWidth = 4;
constexpr const char* kWarmedUp = "ArtworkCacheWarmedUp";

/// One album whose picture is to be made.
struct Work {
  std::int64_t albumId = 0;
  std::string path;          ///< of the picture, or of the audio file that may hold it
  std::uint64_t stamp = 0;   ///< of that file
  bool isReplacing = false;  ///< there is a picture of an earlier source
  PictureOutcome outcome = PictureOutcome::failed;
};

/// Runs cacheOne(work[i]) for every i, four at a time, until it is cancelled.
template <class CacheOne>
void forEach(std::vector<Work>& work, const ArtworkCaching::IsCancelled& isCancelled,
             const CacheOne& cacheOne) {
  std::atomic<std::size_t> next{0};
  const auto runWorker = [&](std::stop_token) {
    for (std::size_t i = next++; i < work.size() && !isCancelled(); i = next++) {
      try {
        work[i].outcome = cacheOne(work[i].albumId, work[i].path);
      } catch (const std::exception& error) {
        // Such as no memory for it; the others may need less.
        log::line("⚠️ No artwork for album {}: {}", work[i].albumId, error.what());
      }
    }
  };
  OperationQueue queue("com.velorin.artwork", kWidth);
  for (std::size_t i = 0; i < std::min(kWidth, work.size()); ++i) queue.add(runWorker);
  queue.waitUntilDone();
}

/// What is known of the albums' sources, before and after one pass.
class KnownSources {
 public:
  explicit KnownSources(const ArtworkCacheManager& cache)
      : _cache(cache), _before(readArtworkSources(cache.sourcesPath())) {}

  /// The work that the album's source asks for; nothing when it was seen in its present state or is
  /// out of reach, as on a volume that is offline.
  std::optional<Work> workFor(std::int64_t albumId, std::string path) {
    const auto known = _before.find(albumId);
    const bool isKnown = known != _before.end();
    std::int64_t modified = 0;
    const auto stamp = sourceStamp(path, &modified);
    if (!stamp) {
      if (isKnown) _now.insert(*known);
      return std::nullopt;
    }
    const bool isSame = isKnown && known->second.stamp == *stamp;
    if (isSame && !known->second.hasPicture) {
      _now.insert(*known);
      return std::nullopt;
    }
    const auto cachedTime = _cache.cachedImageTime(albumId);
    // A picture of which nothing is known was made of this source, unless that is the newer one.
    if (cachedTime && (isSame || (!isKnown && modified <= *cachedTime))) {
      _now[albumId] = {*stamp, true};
      return std::nullopt;
    }
    return Work{albumId, std::move(path), *stamp, cachedTime.has_value()};
  }

  void take(const Work& done) {
    if (done.outcome == PictureOutcome::failed) return;
    _now[done.albumId] = {done.stamp, done.outcome == PictureOutcome::cached};
  }

  /// isComplete: what was not seen is no longer in the library.
  void store(bool isComplete) {
    if (!isComplete) _now.insert(_before.begin(), _before.end());
    if (_now != _before) writeArtworkSources(_cache.sourcesPath(), _now);
  }

 private:
  const ArtworkCacheManager& _cache;
  ArtworkSources _before;
  ArtworkSources _now;
};

}  // namespace

ArtworkCaching::Outcome ArtworkCaching::fill(const IsCancelled& isCancelled) const {
  const auto start = std::chrono::steady_clock::now();
  Outcome outcome;
  const AlbumArtwork albums(_database);
  KnownSources sources(_cache);
  const auto run = [&](const auto& list, auto path, auto cacheOne) {
    std::vector<Work> work;
    for (const auto& album : list) {
      if (isCancelled()) return;
      if (auto wanted = sources.workFor(album.albumId, album.*path)) {
        work.push_back(std::move(*wanted));
      }
    }
    forEach(work, isCancelled, cacheOne);
    for (const Work& done : work) {
      sources.take(done);
      if (done.outcome != PictureOutcome::cached) continue;
      ++outcome.cached;
      // The colour was that of the picture before.
      if (done.isReplacing) albums.setAlbumAccentColor(done.albumId, std::nullopt);
    }
  };
  try {
    run(albums.albumsWithArtwork(), &AlbumArtwork::Cover::artworkPath,
        [this](std::int64_t albumId, const std::string& path) {
          return _cache.cacheImageFile(albumId, path);
        });
    run(albums.albumsMissingArtwork(), &AlbumArtwork::CoverSource::trackPath,
        [this](std::int64_t albumId, const std::string& path) {
          return _cache.cacheEmbeddedArtwork(albumId, path);
        });
    outcome.isComplete = !isCancelled();
  } catch (const VelorinDatabaseError& error) {
    log::line("❌ Artwork caching stopped: {}", error.message);
  }
  sources.store(outcome.isComplete);
  outcome.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  return outcome;
}

std::size_t ArtworkCaching::cacheArtwork(const UpdateStatus& updateStatus,
                                         const IsCancelled& isCancelled) const {
  updateStatus("Caching artwork…");
  log::line("🎨 Post-scan artwork caching…");
  const Outcome outcome = fill(isCancelled);
  log::line("🎨 Artwork caching complete: {} albums cached in {:.1f}s", outcome.cached,
            outcome.seconds);
  return outcome.cached;
}

void ArtworkCaching::warmUp(Preferences& preferences, const IsCancelled& isCancelled) const {
  if (preferences.getBool(kWarmedUp).value_or(false)) return;
  log::line("🎨 Artwork cache warmup starting…");
  const Outcome outcome = fill(isCancelled);
  if (!outcome.isComplete) return;
  log::line("🎨 Artwork cache warmup complete: {} albums in {:.1f}s", outcome.cached,
            outcome.seconds);
  preferences.setBool(kWarmedUp, true);
}

}  // namespace velorin
