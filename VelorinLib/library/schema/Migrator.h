// Brings a library file to the schema of this program, one recorded step at a time.
#pragma once

#include <span>
#include <string_view>

#include "library/sqlite/Connection.h"

namespace velorin::schema {

/// One step of the schema's history. Never changed, reordered or removed once it was released: the
/// identifier stands in the ledger of every library.
struct Migration {
  std::string_view identifier;
  void (*run)(sqlite::Connection& connection);
};

/// The history, oldest first; 31 steps.
std::span<const Migration> migrations() noexcept;

/// Applies, in list order, what the file's ledger does not name yet, each in a transaction of its
/// own, without foreign-key enforcement but with a check of all foreign keys before the commit.
/// The first step that fails leaves the file as the step before it left it, and is thrown as
/// VelorinDatabaseError with the step's identifier in its text. Outside any transaction; foreign
/// keys are on when it returns or throws.
///
/// `last` ends the list early, after the step of that name: how tests make files of earlier times.
void migrate(sqlite::Connection& connection, std::string_view last = {});

/// True when the file's ledger names every step of the history.
bool isCurrent(sqlite::Reader& reader);

}  // namespace velorin::schema
