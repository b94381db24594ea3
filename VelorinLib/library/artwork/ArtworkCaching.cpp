#include "library/artwork/ArtworkCaching.h"

#include <atomic>
#include <chrono>

#include "foundation/Log.h"
#include "foundation/OperationQueue.h"
#include "foundation/Preferences.h"
#include "foundation/Text.h"
#include "library/artwork/ArtworkCacheManager.h"
#include "library/queries/AlbumArtwork.h"
#include "library/sqlite/DatabaseError.h"

namespace velorin {
namespace {

constexpr std::size_t kWidth = 4;
constexpr const char* kWarmedUp = "ArtworkCacheWarmedUp";

/// Runs cacheOne(work[i]) for every i, four at a time, until it is cancelled. Each returns whether
/// there is a picture now; the result is how many.
template <class Work, class CacheOne>
std::size_t forEach(const std::vector<Work>& work, const ArtworkCaching::IsCancelled& isCancelled,
                    const CacheOne& cacheOne) {
  std::atomic<std::size_t> next{0};
  std::atomic<std::size_t> cached{0};
  const auto runWorker = [&](std::stop_token) {
    for (std::size_t i = next++; i < work.size() && !isCancelled(); i = next++) {
      try {
        if (cacheOne(work[i])) ++cached;
      } catch (const std::exception& error) {
        // Such as no memory for it; the others may need less.
        log::line("⚠️ No artwork for album {}: {}", work[i].albumId, error.what());
      }
    }
  };
  OperationQueue queue("com.velorin.artwork", kWidth);
  for (std::size_t i = 0; i < std::min(kWidth, work.size()); ++i) queue.add(runWorker);
  queue.waitUntilDone();
  return cached;
}

}  // namespace

ArtworkCaching::Outcome ArtworkCaching::fill(const IsCancelled& isCancelled) const {
  const auto start = std::chrono::steady_clock::now();
  Outcome outcome;
  const auto withoutCached = [&](auto albums) {
    std::erase_if(albums, [&](const auto& album) {
      return isCancelled() || _cache.hasCachedImage(album.albumId);
    });
    return albums;
  };
  try {
    const AlbumArtwork albums(_database);
    outcome.cached += forEach(withoutCached(albums.albumsWithArtwork()), isCancelled,
                              [this](const AlbumArtwork::Cover& cover) {
                                return _cache.cacheImageFile(cover.albumId, cover.artworkPath);
                              });
    outcome.cached +=
        forEach(withoutCached(albums.albumsMissingArtwork()), isCancelled,
                [this](const AlbumArtwork::CoverSource& source) {
                  return _cache.cacheEmbeddedArtwork(source.albumId, source.trackPath);
                });
    outcome.isComplete = !isCancelled();
  } catch (const VelorinDatabaseError& error) {
    log::line("❌ Artwork caching stopped: {}", error.message);
  }
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
