#include "library/sqlite/ForeignKeys.h"

#include "foundation/Log.h"

namespace velorin::sqlite {

ForeignKeysSuspended::ForeignKeysSuspended(Connection& connection) : _connection(connection) {
  if (connection.isInTransaction()) {
    throw VelorinDatabaseError("foreign keys cannot be suspended inside a transaction");
  }
  _connection.executeScript("PRAGMA foreign_keys = OFF");
}

ForeignKeysSuspended::~ForeignKeysSuspended() {
  try {
    _connection.executeScript("PRAGMA foreign_keys = ON");
  } catch (const VelorinDatabaseError& error) {
    log::line("❌ Database: foreign keys could not be turned on again: {}", error.message);
  }
}

void checkForeignKeys(Reader& reader) {
  auto violations = reader.query("PRAGMA foreign_key_check");
  if (!violations.next()) return;
  throw VelorinDatabaseError("row " + violations.get<std::string>(1) + " of the table " +
                             violations.get<std::string>(0) + " refers to a row of " +
                             violations.get<std::string>(2) + " that is not there");
}

}  // namespace velorin::sqlite
