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
#include "library/queries/LibraryImport.h"
#include "library/queries/TrackListings.h"

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

  // Browsing.
  TrackListings& tracks() noexcept { return _tracks; }

  // What the files say.
  LibraryImport& import() noexcept { return _import; }

  // What the listener did.

 private:
  DatabaseHandle _database;

  TrackListings _tracks{_database};
  LibraryImport _import{_database};
};

}  // namespace velorin
