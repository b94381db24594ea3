// Foreign keys, where they must stand aside for a while.
#pragma once

#include "library/sqlite/Connection.h"

namespace velorin::sqlite {

/// Neither enforces nor follows them during its life, which begins and ends outside a transaction:
/// SQLite changes this only there. Throws VelorinDatabaseError inside one.
class ForeignKeysSuspended {
 public:
  explicit ForeignKeysSuspended(Connection& connection);
  ~ForeignKeysSuspended();
  ForeignKeysSuspended(const ForeignKeysSuspended&) = delete;
  ForeignKeysSuspended& operator=(const ForeignKeysSuspended&) = delete;

 private:
  Connection& _connection;
};

/// Throws VelorinDatabaseError when a row of any table refers to one that is not there.
void checkForeignKeys(Reader& reader);

}  // namespace velorin::sqlite
