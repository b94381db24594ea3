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
  /// Of the library's default file, with the user's preferences, for a command that needs no more.
  LibraryServices();
  /// The same with what others use too; both outlive it.
  LibraryServices(EventBus& events, Preferences& preferences);
  ~LibraryServices();
  LibraryServices(const LibraryServices&) = delete;
  LibraryServices& operator=(const LibraryServices&) = delete;

  DatabaseManager& manager() noexcept { return *_manager; }
  const std::shared_ptr<DatabaseManager>& sharedManager() const noexcept { return _manager; }
  const ArtworkCacheManager& artworkCache() const noexcept { return _artworkCache; }
  VolumeManager& volumes() noexcept { return _volumes; }
  LibraryScanner& scanner() noexcept { return _scanner; }

 private:
  /// What a command has for itself alone.
  struct Own;
  explicit LibraryServices(std::unique_ptr<Own> own);
  LibraryScanner::Parts scannerParts();
  void followVolumes();

  std::unique_ptr<Own> _own;  ///< first, for the others refer to it
  EventBus& _events;
  Preferences& _preferences;
  LibraryUpdateThrottle _throttle{_events};
  std::shared_ptr<DatabaseManager> _manager;
  VolumeManager _volumes{_preferences};
  ArtworkCacheManager _artworkCache;
  ArtworkCaching _artwork;
  ListeningKeeper _listening;
  LibraryScanner _scanner;
};

}  // namespace velorin
