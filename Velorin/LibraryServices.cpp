#include "LibraryServices.h"

#include "foundation/Log.h"
#include "foundation/Paths.h"
#include "library/LibraryFile.h"
#include "library/artwork/FolderArtwork.h"
#include "library/metadata/MetadataExtractor.h"

namespace velorin {

struct LibraryServices::Own {
  EventBus events;
  Preferences preferences{paths::preferencesFile()};
};

LibraryServices::LibraryServices() : LibraryServices(std::make_unique<Own>()) {}

LibraryServices::LibraryServices(std::unique_ptr<Own> own)
    : LibraryServices(own->events, own->preferences) {
  _own = std::move(own);
}

LibraryServices::LibraryServices(EventBus& events, Preferences& preferences)
    : _events(events),
      _preferences(preferences),
      _manager(DatabaseManager::open(defaultLibraryFile(), &_events)),
      _artworkCache(paths::dataDirectory()),
      _artwork(_manager->database(), _artworkCache),
      _listening(_manager->database(), _preferences),
      _scanner(scannerParts()) {}

LibraryServices::~LibraryServices() = default;

void LibraryServices::followVolumes() {
  try {
    _volumes.migrateFolderPaths(_manager->folderMove());
    _volumes.rememberVolumes(_manager->folders().getFolders());
  } catch (const VelorinDatabaseError& error) {
    log::line("⚠️ The volumes of the music folders cannot be followed: {}", error.message);
  }
}

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
      .followVolumes = [this] { followVolumes(); },
      .warmUpArtwork =
          [this](const auto& isCancelled) { _artwork.warmUp(_preferences, isCancelled); },
  };
}

}  // namespace velorin
