#include "library/LibraryFile.h"

#include <sqlite3.h>
#include <unistd.h>

#include <system_error>

#include "foundation/Log.h"
#include "foundation/Paths.h"
#include "library/schema/Migrator.h"

namespace velorin {
namespace {

namespace fs = std::filesystem;

std::shared_ptr<ConnectionQueue> openAndMigrate(const fs::path& file) {
  auto queue = std::make_shared<ConnectionQueue>(file);
  queue->withConnection([](sqlite::Connection& connection) { schema::migrate(connection); });
  return queue;
}

/// True when the failure lies around the file rather than in it: setting the file aside would help
/// nobody, and would hide a healthy library.
bool liesOutsideTheFile(const VelorinDatabaseError& error, const fs::path& file) {
  const auto* failure = dynamic_cast<const sqlite::SqliteError*>(&error);
  if (failure == nullptr) return false;
  switch (failure->code()) {
    case SQLITE_FULL:
    case SQLITE_READONLY:
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
    case SQLITE_NOMEM:
    case SQLITE_PERM:
    case SQLITE_IOERR:
    case SQLITE_PROTOCOL:
    case SQLITE_NOLFS:
      return true;
    case SQLITE_CANTOPEN:
      // Also what a folder in the place of the file gives; that one can be set aside.
      return ::access(file.c_str(), F_OK) != 0 || ::access(file.c_str(), R_OK | W_OK) != 0 ||
             ::access(file.parent_path().c_str(), W_OK) != 0;
    default:
      return false;
  }
}

fs::path withSuffix(const fs::path& file, const std::string& suffix) {
  fs::path named = file;
  named += suffix;
  return named;
}

/// Moves the file away. What fails here shows when the file is opened again.
fs::path setAside(const fs::path& file) {
  const auto now = std::chrono::duration_cast<std::chrono::seconds>(
      std::chrono::system_clock::now().time_since_epoch());
  const fs::path target = withSuffix(file, ".corrupt-" + std::to_string(now.count()));
  std::error_code ignored;
  // A second failure within the second must not replace what the first one saved.
  if (!fs::exists(target, ignored)) fs::rename(file, target, ignored);
  fs::remove(withSuffix(file, "-wal"), ignored);
  fs::remove(withSuffix(file, "-shm"), ignored);
  return target;
}

}  // namespace

std::shared_ptr<ConnectionQueue> openLibraryFile(const fs::path& file) {
  std::error_code failed;
  if (file.has_parent_path()) fs::create_directories(file.parent_path(), failed);
  if (failed) {
    throw VelorinDatabaseError("Failed to create database directory: " + failed.message());
  }
  std::string original;
  try {
    auto queue = openAndMigrate(file);
    log::line("📦 Database opened at {}", file.native());
    return queue;
  } catch (const VelorinDatabaseError& error) {
    if (liesOutsideTheFile(error, file)) {
      throw VelorinDatabaseError("Failed to open database at " + file.native() + ": " +
                                 error.message);
    }
    original = error.message;
  }
  const fs::path old = setAside(file);
  try {
    auto queue = openAndMigrate(file);
    log::line("⚠️ Database open failed ({}); recovered to fresh DB. Old file at {}", original,
              old.native());
    return queue;
  } catch (const VelorinDatabaseError& retry) {
    throw VelorinDatabaseError("Failed to open database at " + file.native() +
                               " even after recovery: original=" + original +
                               "; retry=" + retry.message);
  }
}

std::shared_ptr<ConnectionQueue> openLibraryForReading(const fs::path& file) {
  std::error_code failed;
  if (!fs::exists(file, failed) && !failed) throw NoLibraryError("there is no library yet");
  auto queue = std::make_shared<ConnectionQueue>(file, sqlite::Access::readOnly);
  queue->read([](sqlite::Reader& reader) {
    if (schema::isCurrent(reader)) return;
    throw VelorinDatabaseError("the library is of an earlier version of velorin, or none at all");
  });
  return queue;
}

fs::path defaultLibraryFile() {
  return paths::dataDirectory() / "library.sqlite";
}

}  // namespace velorin
