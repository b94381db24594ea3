// What a database operation throws when it cannot do its work.
#pragma once

#include <exception>
#include <string>
#include <utility>

namespace velorin {

/// One line that says what failed and, where the user can do something, what.
struct VelorinDatabaseError : std::exception {
  explicit VelorinDatabaseError(std::string text) : message(std::move(text)) {}
  const char* what() const noexcept override { return message.c_str(); }

  std::string message;
};

/// What an operation that must have a database says when there is none.
inline constexpr const char* kDatabaseUnavailable = "Database unavailable";

namespace sqlite {

/// A call of SQLite that failed.
struct SqliteError : VelorinDatabaseError {
  SqliteError(int extendedCode, std::string text)
      : VelorinDatabaseError(std::move(text)), extended(extendedCode) {}

  /// The primary result code, such as SQLITE_FULL.
  int code() const noexcept { return extended & 0xff; }

  int extended;  ///< the extended result code, such as SQLITE_CONSTRAINT_FOREIGNKEY
};

}  // namespace sqlite
}  // namespace velorin
