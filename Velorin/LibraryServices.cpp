#include "LibraryServices.h"

#include "foundation/Paths.h"
#include "library/LibraryFile.h"
#include "library/artwork/FolderArtwork.h"
#include "library/metadata/MetadataExtractor.h"

namespace velorin {

LibraryServices::LibraryServices()
    : _preferences(paths::preferencesFile()),
      _manager(DatabaseManager::open(defaultLibraryFile(), &_events)),
      _artworkCache(paths::dataDirectory()),
      _artwork(_manager->database(), _artworkCache),
      _listening(_manager->database(), _preferences),
      _scanner(scannerParts()) {}

LibraryScanner::Parts LibraryServices::scannerParts() {
  return {
      .scan = {.database = _manager->database(),
               .removal = _manager->removal(),
               .events = _events,
               .preferences = _preferences,
               .throttle = _throttle,
               .extractor = std::make_shared<MetadataExtractor>(),
               .findArtwork = &findArtwork},
      .hooks = {.cacheArtwork =
                    [this](const auto& updateStatus, const auto& isCancelled) {
                      _artwork.cacheArtwork(updateStatus, isCancelled);
                    },
                .keepListening =
                    [this](const auto& isCancelled) { _listening.afterScan(isCancelled); },
                .clearArtwork = [this] { _artworkCache.removeAll(); },
                .clearThumbnails = {}},
      .volumes = _volumes,
      .volumesChanged = [this](const auto& folders) { _volumes.rememberVolumes(folders); },
      .warmUpArtwork =
          [this](const auto& isCancelled) { _artwork.warmUp(_preferences, isCancelled); },
  };
}

}  // namespace velorin
