// The library and all that keeps it, put together.
#pragma once

#include <memory>

#include "foundation/EventBus.h"
#include "foundation/Preferences.h"
#include "library/DatabaseManager.h"
#include "library/artwork/ArtworkCacheManager.h"
#include "library/artwork/ArtworkCaching.h"
#include "library/listening/ListeningKeeper.h"
#include "library/scan/LibraryScanner.h"
#include "library/volumes/VolumeManager.h"

namespace velorin {

/// Main thread. Opening throws VelorinDatabaseError with a line that says what to do.
class LibraryServices {
 public:
  /// Of the library's default file, with the user's preferences.
  LibraryServices();
  LibraryServices(const LibraryServices&) = delete;
  LibraryServices& operator=(const LibraryServices&) = delete;

  DatabaseManager& manager() noexcept { return *_manager; }
  VolumeManager& volumes() noexcept { return _volumes; }
  LibraryScanner& scanner() noexcept { return _scanner; }

 private:
  LibraryScanner::Parts scannerParts();
  void followVolumes();

  EventBus _events;
  LibraryUpdateThrottle _throttle{_events};
  Preferences _preferences;
  std::shared_ptr<DatabaseManager> _manager;
  VolumeManager _volumes{_preferences};
  ArtworkCacheManager _artworkCache;
  ArtworkCaching _artwork;
  ListeningKeeper _listening;
  LibraryScanner _scanner;
};

}  // namespace velorin
