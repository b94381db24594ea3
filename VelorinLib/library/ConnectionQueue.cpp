#include "library/ConnectionQueue.h"

#include <sqlite3.h>

#include <thread>

#include "foundation/Log.h"

namespace velorin {
namespace {

constexpr std::array kFacets = {Facet::library, Facet::plays, Facet::ratings};

unsigned bit(Facet facet) {
  return static_cast<unsigned>(facet);
}

/// What a listing may see of a statement that writes this column (of any column when it is empty).
unsigned facetsOf(std::string_view table, std::string_view column) {
  if (table == "artists" || table == "tracks_fts") return bit(Facet::library);
  if (table == "albums") {
    const bool unseen =
        column == "artworkPath" || column == "worstFormat" || column == "accentColorHex";
    return unseen ? 0 : bit(Facet::library);
  }
  if (table != "tracks") return 0;
  if (column.empty()) return bit(Facet::library) | bit(Facet::plays) | bit(Facet::ratings);
  if (column == "totalPlays") return bit(Facet::plays);
  if (column == "rating") return bit(Facet::ratings);
  for (const std::string_view unseen :
       {"totalSkips", "bookmarks", "lyrics", "syncedLyrics", "scannedLoudness", "scannedTruePeak",
        "loudnessScanVersion", "dynamicRange"}) {
    if (column == unseen) return 0;
  }
  return bit(Facet::library);
}

/// Needs the file for itself for a moment. Where two programs open a new file at once SQLite does
/// not wait for that, as either might wait for the other, but reports the file as busy.
void enterWAL(sqlite::Connection& connection) {
  using namespace std::chrono_literals;
  const auto deadline = std::chrono::steady_clock::now() + 5s;
  for (;;) {
    try {
      connection.executeScript("PRAGMA journal_mode = WAL");
      return;
    } catch (const sqlite::SqliteError& error) {
      if (error.code() != SQLITE_BUSY || std::chrono::steady_clock::now() > deadline) throw;
    }
    std::this_thread::sleep_for(10ms);
  }
}

}  // namespace

ConnectionQueue::ConnectionQueue(const std::filesystem::path& file, sqlite::Access access)
    : _file(file), _connection(std::make_unique<sqlite::Connection>(file, access)) {
  setUp(access);
}

ConnectionQueue::ConnectionQueue() : ConnectionQueue(std::filesystem::path(":memory:")) {}

ConnectionQueue::~ConnectionQueue() = default;

void ConnectionQueue::setUp(sqlite::Access access) {
  if (access == sqlite::Access::readWrite) {
    _connection->executeScript("PRAGMA foreign_keys = ON");
    enterWAL(*_connection);
  } else {
    _connection->executeScript("PRAGMA query_only = ON");
  }
  // Some builds of SQLite overwrite with zeros what is deleted, which makes a library that is
  // emptied a gigabyte to write.
  _connection->executeScript(R"(
PRAGMA secure_delete = OFF;
PRAGMA synchronous = NORMAL;
PRAGMA cache_size = -65536;
PRAGMA mmap_size = 268435456;
PRAGMA temp_store = MEMORY;
)");
  _connection->setChangeClassifier(&facetsOf);
}

void ConnectionQueue::requireOtherThread() const {
  if (_queue.isCurrent()) {
    throw VelorinDatabaseError("a database operation was started inside another one");
  }
}

LibraryVersion ConnectionQueue::version(sqlite::Reader& reader, unsigned facets) const {
  LibraryVersion version;
  for (std::size_t i = 0; i < kFacets.size(); ++i) {
    if ((facets & bit(kFacets[i])) != 0) version.own += _versions[i];
  }
  version.foreign = reader.first<std::int64_t>("PRAGMA data_version").value_or(0);
  return version;
}

ConnectionQueue::Transaction::Transaction(ConnectionQueue& queue, const char* begin)
    : _queue(queue) {
  _queue._connection->executeScript(begin);
  _queue._connection->takeChanges();
}

ConnectionQueue::Transaction::~Transaction() {
  // SQLite has rolled back by itself after some errors, such as a full disk.
  if (!_open || !_queue._connection->isInTransaction()) return;
  try {
    _queue._connection->executeScript("ROLLBACK");
  } catch (const VelorinDatabaseError& error) {
    log::line("❌ Database: a transaction could not be rolled back: {}", error.message);
  }
}

void ConnectionQueue::Transaction::commit() {
  _queue._connection->executeScript("COMMIT");
  _open = false;
  const unsigned changes = _queue._connection->takeChanges();
  for (std::size_t i = 0; i < kFacets.size(); ++i) {
    if ((changes & bit(kFacets[i])) != 0) ++_queue._versions[i];
  }
}

}  // namespace velorin
