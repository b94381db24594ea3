#include "library/sqlite/Statement.h"

#include <sqlite3.h>

#include <cerrno>

#include "foundation/Dates.h"

namespace velorin::sqlite {
namespace {

/// The result code that says it best: a full disk or a missing permission shows in some calls, such
/// as those for the shared memory beside the file, only in what the system said.
int plainCode(int code, int systemError) {
  const int primary = code & 0xff;
  if (primary != SQLITE_IOERR && primary != SQLITE_CANTOPEN) return primary;
  switch (systemError) {
    case ENOSPC:
    case EDQUOT:
      return SQLITE_FULL;
    case EACCES:
    case EPERM:
    case EROFS:
      return SQLITE_READONLY;
    default:
      return primary;
  }
}

/// SQLite's own words, and what the user can do where that is known.
std::string explain(int code, const char* words) {
  switch (code) {
    case SQLITE_FULL:
      return "the disk that holds the library is full: make room and try again";
    case SQLITE_READONLY:
      return "the library cannot be written to: check the permissions of its file and folder";
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      return "another program is writing to the library: try again when it has ended";
    default:
      return words;
  }
}

[[noreturn]] void fail(sqlite3* connection) {
  const int code = sqlite3_extended_errcode(connection);
  throw SqliteError(
      code, explain(plainCode(code, sqlite3_system_errno(connection)), sqlite3_errmsg(connection)));
}

}  // namespace

std::string placeholders(std::size_t count) {
  std::string text;
  text.reserve(2 * count);
  for (std::size_t i = 0; i < count; ++i) text += i == 0 ? "?" : ",?";
  return text;
}

std::optional<TimePoint> momentOf(std::string_view text) {
  // CURRENT_TIMESTAMP, the default of one column, has no fraction.
  constexpr std::size_t kWithoutFraction = 19;
  if (text.size() == kWithoutFraction) return dates::fromText(std::string(text) + ".000");
  return dates::fromText(text);
}

Statement::Statement(sqlite3* connection, std::string_view sql, std::size_t* consumed) {
  const char* rest = nullptr;
  if (sqlite3_prepare_v3(connection, sql.data(), static_cast<int>(sql.size()),
                         SQLITE_PREPARE_PERSISTENT, &_statement, &rest) != SQLITE_OK) {
    fail(connection);
  }
  if (consumed != nullptr) *consumed = static_cast<std::size_t>(rest - sql.data());
}

Statement::~Statement() {
  sqlite3_finalize(_statement);
}

bool Statement::isReadOnly() const noexcept {
  return sqlite3_stmt_readonly(_statement) != 0;
}

int Statement::parameterCount() const noexcept {
  return sqlite3_bind_parameter_count(_statement);
}

void Statement::check(int result) const {
  if (result != SQLITE_OK) fail(sqlite3_db_handle(_statement));
}

void Statement::checkBound(int bound) const {
  if (bound != parameterCount()) {
    throw VelorinDatabaseError(fmt::format("{} arguments for {} parameters of: {}", bound,
                                           parameterCount(), sqlite3_sql(_statement)));
  }
}

void Statement::bind(int parameter, std::nullptr_t) {
  check(sqlite3_bind_null(_statement, parameter));
}

void Statement::bind(int parameter, std::int64_t value) {
  check(sqlite3_bind_int64(_statement, parameter, value));
}

void Statement::bind(int parameter, double value) {
  check(sqlite3_bind_double(_statement, parameter, value));
}

void Statement::bind(int parameter, std::string_view text) {
  if (text.find('\0') != std::string_view::npos) {
    throw VelorinDatabaseError(
        fmt::format("the library holds no text with a NUL character, such as the one after \"{}\"",
                    text.substr(0, std::min<std::size_t>(text.find('\0'), 80))));
  }
  // A null pointer would bind NULL; an empty view may have one.
  check(sqlite3_bind_text64(_statement, parameter, text.data() == nullptr ? "" : text.data(),
                            text.size(), SQLITE_TRANSIENT, SQLITE_UTF8));
}

void Statement::bind(int parameter, std::span<const std::byte> bytes) {
  check(bytes.empty() ? sqlite3_bind_zeroblob(_statement, parameter, 0)
                      : sqlite3_bind_blob64(_statement, parameter, bytes.data(), bytes.size(),
                                            SQLITE_TRANSIENT));
}

void Statement::bind(int parameter, TimePoint moment) {
  bind(parameter, dates::toText(moment));
}

void Statement::bind(int parameter, const Value& value) {
  std::visit([&](const auto& held) { bind(parameter, held); }, value);
}

bool Statement::step() {
  switch (sqlite3_step(_statement)) {
    case SQLITE_ROW:
      return true;
    case SQLITE_DONE:
      return false;
    default:
      fail(sqlite3_db_handle(_statement));
  }
}

void Statement::reset() noexcept {
  sqlite3_reset(_statement);
  sqlite3_clear_bindings(_statement);
}

bool Statement::isNull(int column) const noexcept {
  return sqlite3_column_type(_statement, column) == SQLITE_NULL;
}

std::int64_t Statement::integer(int column) const noexcept {
  return sqlite3_column_int64(_statement, column);
}

double Statement::real(int column) const noexcept {
  return sqlite3_column_double(_statement, column);
}

std::string_view Statement::text(int column) const noexcept {
  const auto* bytes = reinterpret_cast<const char*>(sqlite3_column_text(_statement, column));
  if (bytes == nullptr) return {};
  return {bytes, static_cast<std::size_t>(sqlite3_column_bytes(_statement, column))};
}

std::span<const std::byte> Statement::blob(int column) const noexcept {
  const auto* bytes = static_cast<const std::byte*>(sqlite3_column_blob(_statement, column));
  if (bytes == nullptr) return {};
  return {bytes, static_cast<std::size_t>(sqlite3_column_bytes(_statement, column))};
}

}  // namespace velorin::sqlite
