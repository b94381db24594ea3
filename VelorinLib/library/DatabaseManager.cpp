#include "library/DatabaseManager.h"

#include <cstdlib>

#include "foundation/Log.h"
#include "library/LibraryFile.h"
#include "library/schema/Migrator.h"

namespace velorin {
namespace {

struct Shared {
  Mutex mutex;
  std::shared_ptr<DatabaseManager> manager GUARDED_BY(mutex);
};

Shared& sharedSlot() {
  static Shared slot;
  return slot;
}

}  // namespace

DatabaseManager::DatabaseManager(std::shared_ptr<ConnectionQueue> dbQueue, EventBus* events)
    : _database(dbQueue), _history(_database, events) {
  dbQueue->withConnection([](sqlite::Connection& connection) { schema::migrate(connection); });
}

DatabaseManager::~DatabaseManager() = default;

std::shared_ptr<DatabaseManager> DatabaseManager::open(const std::filesystem::path& file,
                                                       EventBus* events) {
  return std::make_shared<DatabaseManager>(openLibraryFile(file), events);
}

std::shared_ptr<DatabaseManager> DatabaseManager::shared() {
  Shared& slot = sharedSlot();
  // Held while the file is opened, so that two threads that race wait for one open.
  const MutexLock lock(slot.mutex);
  if (!slot.manager) {
    try {
      slot.manager = open(defaultLibraryFile());
    } catch (const VelorinDatabaseError& error) {
      log::line("❌ {}", error.message);
      std::exit(EXIT_FAILURE);
    }
  }
  return slot.manager;
}

void DatabaseManager::setShared(std::shared_ptr<DatabaseManager> manager) {
  Shared& slot = sharedSlot();
  const MutexLock lock(slot.mutex);
  slot.manager.swap(manager);
}

}  // namespace velorin
