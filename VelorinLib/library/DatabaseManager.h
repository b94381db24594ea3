// The library database: one face over its parts.
//
// Each part holds the operations of one concern and may be used, and tested, on its own over any
// DatabaseHandle. All SQL of the program is in them. They may be called from any thread but the
// render thread; a caller waits its turn on the connection queue. Without a database what reads
// returns its empty value, and what writes throws VelorinDatabaseError.
#pragma once

#include <filesystem>
#include <memory>

#include "library/DatabaseHandle.h"
#include "library/queries/AlbumArtwork.h"
#include "library/queries/AlbumListings.h"
#include "library/queries/ArtistListings.h"
#include "library/queries/CategoryListings.h"
#include "library/queries/FocusCounts.h"
#include "library/queries/FolderBrowser.h"
#include "library/queries/FolderMove.h"
#include "library/queries/HomeStatistics.h"
#include "library/queries/LibraryImport.h"
#include "library/queries/LibraryInventory.h"
#include "library/queries/LibrarySearch.h"
#include "library/queries/MusicFolders.h"
#include "library/queries/Pins.h"
#include "library/queries/PlaybackHistory.h"
#include "library/queries/Playlists.h"
#include "library/queries/ProcessedCues.h"
#include "library/queries/TitleLookups.h"
#include "library/queries/TrackEdits.h"
#include "library/queries/TrackListings.h"
#include "library/queries/TrackRemoval.h"

namespace velorin {

class EventBus;

class DatabaseManager {
 public:
  /// Over a connection queue that is open already, whose database it migrates. Throws
  /// VelorinDatabaseError. The bus, which may be absent, outlives the manager.
  explicit DatabaseManager(std::shared_ptr<ConnectionQueue> dbQueue, EventBus* events = nullptr);
  ~DatabaseManager();
  DatabaseManager(const DatabaseManager&) = delete;
  DatabaseManager& operator=(const DatabaseManager&) = delete;

  /// The library of a file, see openLibraryFile.
  static std::shared_ptr<DatabaseManager> open(const std::filesystem::path& file,
                                               EventBus* events = nullptr);

  /// The manager of this process. The first use opens the default file on the calling thread, and
  /// ends the process with a line in the log when there can be no library. Any thread.
  static std::shared_ptr<DatabaseManager> shared();
  /// Puts another manager in its place.
  static void setShared(std::shared_ptr<DatabaseManager> manager);

  /// The connection queue; empty while a restore replaces the file.
  std::shared_ptr<ConnectionQueue> dbQueue() const { return _database.dbQueue(); }
  void setDbQueue(std::shared_ptr<ConnectionQueue> queue) {
    _database.setDbQueue(std::move(queue));
  }

  /// For parts that are not in here; as long as the manager.
  const DatabaseHandle& database() const noexcept { return _database; }

  // Browsing.
  TrackListings& tracks() noexcept { return _tracks; }
  AlbumListings& albums() noexcept { return _albums; }
  ArtistListings& artists() noexcept { return _artists; }
  CategoryListings& categories() noexcept { return _categories; }
  FocusCounts& focusCounts() noexcept { return _focusCounts; }
  FolderBrowser& folderBrowser() noexcept { return _folderBrowser; }
  LibrarySearch& search() noexcept { return _search; }
  TitleLookups& titles() noexcept { return _titles; }

  // What the files say.
  LibraryImport& import() noexcept { return _import; }
  LibraryInventory& inventory() noexcept { return _inventory; }
  MusicFolders& folders() noexcept { return _folders; }
  FolderMove& folderMove() noexcept { return _folderMove; }
  ProcessedCues& processedCues() noexcept { return _processedCues; }
  TrackRemoval& removal() noexcept { return _removal; }
  AlbumArtwork& artwork() noexcept { return _artwork; }

  // What the listener did.
  PlaybackHistory& history() noexcept { return _history; }
  HomeStatistics& homeStatistics() noexcept { return _homeStatistics; }
  Playlists& playlists() noexcept { return _playlists; }
  Pins& pins() noexcept { return _pins; }
  TrackEdits& trackEdits() noexcept { return _trackEdits; }

 private:
  DatabaseHandle _database;

  TrackListings _tracks{_database};
  AlbumListings _albums{_database};
  ArtistListings _artists{_database};
  CategoryListings _categories{_database};
  FocusCounts _focusCounts{_database};
  FolderBrowser _folderBrowser{_database};
  LibrarySearch _search{_database};
  TitleLookups _titles{_database};
  LibraryImport _import{_database};
  LibraryInventory _inventory{_database};
  MusicFolders _folders{_database};
  FolderMove _folderMove{_database};
  ProcessedCues _processedCues{_database};
  TrackRemoval _removal{_database};
  AlbumArtwork _artwork{_database};
  PlaybackHistory _history;
  HomeStatistics _homeStatistics{_database};
  Playlists _playlists{_database};
  Pins _pins{_database};
  TrackEdits _trackEdits{_database};
};

}  // namespace velorin
