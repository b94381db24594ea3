#include "library/schema/Migrator.h"

#include <algorithm>
#include <unordered_set>

#include "foundation/Log.h"
#include "library/sqlite/ForeignKeys.h"

namespace velorin::schema {
namespace {

using sqlite::Connection;
using sqlite::Reader;
using sqlite::Writer;

std::unordered_set<std::string> ledger(Reader& reader) {
  if (!reader.first<int>("SELECT 1 FROM sqlite_master WHERE name = 'grdb_migrations'")) return {};
  std::unordered_set<std::string> identifiers;
  reader.each("SELECT identifier FROM grdb_migrations",
              [&](const sqlite::Row& row) { identifiers.insert(row.get<std::string>(0)); });
  return identifiers;
}

std::span<const Migration> historyUpTo(std::string_view last) {
  const auto all = migrations();
  if (last.empty()) return all;
  const auto end = std::ranges::find(all, last, &Migration::identifier);
  if (end == all.end()) throw VelorinDatabaseError("there is no migration " + std::string(last));
  return all.first(static_cast<std::size_t>(end - all.begin()) + 1);
}

void runAndRecord(Connection& connection, const Migration& step) {
  Writer writer(connection);
  writer.run("CREATE TABLE IF NOT EXISTS grdb_migrations (identifier TEXT NOT NULL PRIMARY KEY)");
  // Another program may have taken this step while we waited for the file.
  if (writer.first<int>("SELECT 1 FROM grdb_migrations WHERE identifier = ?", step.identifier)) {
    return;
  }
  step.run(connection);
  sqlite::checkForeignKeys(writer);
  writer.run("INSERT INTO grdb_migrations (identifier) VALUES (?)", step.identifier);
}

void rollBack(Connection& connection) noexcept {
  // SQLite has rolled back by itself after some errors, such as a full disk.
  if (!connection.isInTransaction()) return;
  try {
    connection.executeScript("ROLLBACK");
  } catch (const VelorinDatabaseError& error) {
    log::line("❌ Database: a migration could not be rolled back: {}", error.message);
  }
}

void apply(Connection& connection, const Migration& step) {
  const auto named = [&](const VelorinDatabaseError& error) {
    return "migration " + std::string(step.identifier) + " failed: " + error.message;
  };
  try {
    connection.executeScript("BEGIN IMMEDIATE");
    runAndRecord(connection, step);
    connection.executeScript("COMMIT");
  } catch (const sqlite::SqliteError& error) {
    rollBack(connection);
    throw sqlite::SqliteError(error.extended, named(error));
  } catch (const VelorinDatabaseError& error) {
    rollBack(connection);
    throw VelorinDatabaseError(named(error));
  } catch (...) {
    rollBack(connection);
    throw;
  }
}

}  // namespace

void migrate(Connection& connection, std::string_view last) {
  // Steps that rebuild a table would otherwise take its children with it.
  const sqlite::ForeignKeysSuspended suspended(connection);
  Reader reader(connection);
  const auto done = ledger(reader);
  for (const Migration& step : historyUpTo(last)) {
    if (!done.contains(std::string(step.identifier))) apply(connection, step);
  }
}

bool isCurrent(Reader& reader) {
  const auto done = ledger(reader);
  return std::ranges::all_of(migrations(), [&](const Migration& step) {
    return done.contains(std::string(step.identifier));
  });
}

}  // namespace velorin::schema
