// A prepared statement and a walk over its rows.
//
// Both belong to the thread that uses their connection at that moment. Every failure throws
// SqliteError, whose text names what the user can do about it where there is something.
#pragma once

#include <concepts>
#include <memory>

#include "library/sqlite/DatabaseError.h"
#include "library/sqlite/Value.h"

struct sqlite3;
struct sqlite3_stmt;

namespace velorin::sqlite {

/// One statement, compiled once and run often. Parameters are numbered from 1.
class Statement {
 public:
  /// Compiles the first statement of the text. `consumed`, where given, gets the number of bytes
  /// it took.
  Statement(sqlite3* connection, std::string_view sql, std::size_t* consumed = nullptr);
  ~Statement();
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  /// Nothing to run: white space or a comment.
  bool isEmpty() const noexcept { return _statement == nullptr; }
  /// True when running it cannot change the database.
  bool isReadOnly() const noexcept;
  int parameterCount() const noexcept;

  void bind(int parameter, std::nullptr_t);
  void bind(int parameter, std::int64_t value);
  void bind(int parameter, double value);
  /// Text must not hold a NUL character: SQLite would keep it and cut it off when comparing.
  void bind(int parameter, std::string_view text);
  void bind(int parameter, std::span<const std::byte> bytes);
  /// In the text form of foundation/Dates.h.
  void bind(int parameter, TimePoint moment);
  void bind(int parameter, const Value& value);
  void bind(int parameter, const std::string& text) { bind(parameter, std::string_view(text)); }
  void bind(int parameter, const char* text) { bind(parameter, std::string_view(text)); }
  void bind(int parameter, const Blob& bytes) {
    bind(parameter, std::span<const std::byte>(bytes));
  }
  template <std::integral Integer>
  void bind(int parameter, Integer value) {
    bind(parameter, static_cast<std::int64_t>(value));
  }
  template <class T>
  void bind(int parameter, const std::optional<T>& value) {
    if (value) {
      bind(parameter, *value);
    } else {
      bind(parameter, nullptr);
    }
  }

  /// Binds all parameters: each argument takes one, a `Values` or a span as many as it holds. The
  /// number must be that of the statement's question marks.
  template <class... Arguments>
  void bindAll(const Arguments&... arguments) {
    int next = 1;
    (bindFrom(next, arguments), ...);
    checkBound(next - 1);
  }

  /// Advances to the next row; false at the end.
  bool step();
  /// Makes it ready to run anew, and drops what was bound.
  void reset() noexcept;

  /// Which values the columns of the current row hold. Columns are numbered from 0.
  bool isNull(int column) const noexcept;
  std::int64_t integer(int column) const noexcept;
  double real(int column) const noexcept;
  /// Valid until the next step or reset.
  std::string_view text(int column) const noexcept;
  std::span<const std::byte> blob(int column) const noexcept;

  /// What its owner keeps with it; see Connection::setChangeClassifier.
  unsigned changes = 0;

 private:
  template <class T>
  void bindFrom(int& next, const T& argument) {
    if constexpr (std::same_as<T, Values>) {
      for (const Value& value : argument) bind(next++, value);
    } else {
      bind(next++, argument);
    }
  }
  template <class T, std::size_t Extent>
  void bindFrom(int& next, const std::span<T, Extent>& arguments) {
    for (const auto& argument : arguments) bind(next++, argument);
  }
  void checkBound(int bound) const;
  void check(int result) const;

  sqlite3_stmt* _statement = nullptr;
};

/// The current row of a running statement. A value that is NULL reads as an empty optional, or as
/// 0, false and "" where the type asked for has no room for nothing.
class Row {
 public:
  explicit Row(const Statement& statement) : _statement(statement) {}

  bool isNull(int column) const noexcept { return _statement.isNull(column); }

  /// T: an integer type, bool, double, std::string, Blob, std::string_view or a span of bytes (both
  /// valid until the next row), TimePoint (a text of another form reads as the clock's epoch), or
  /// an optional of one.
  template <class T>
  T get(int column) const;

 private:
  const Statement& _statement;
};

/// Reads the columns of a row from left to right, one call each: a record's mapper names its
/// fields in the order of its column list, and no number appears.
class RowReader {
 public:
  explicit RowReader(const Row& row, int firstColumn = 0) : _row(row), _column(firstColumn) {}

  template <class T>
  RowReader& operator>>(T& field) {
    field = _row.get<T>(_column++);
    return *this;
  }

 private:
  const Row& _row;
  int _column;
};

namespace detail {
template <class T>
struct IsOptional : std::false_type {};
template <class T>
struct IsOptional<std::optional<T>> : std::true_type {};
}  // namespace detail

std::optional<TimePoint> momentOf(std::string_view text);

template <class T>
T Row::get(int column) const {
  if constexpr (detail::IsOptional<T>::value) {
    if (isNull(column)) return std::nullopt;
    if constexpr (std::same_as<typename T::value_type, TimePoint>) {
      return momentOf(_statement.text(column));
    } else {
      return get<typename T::value_type>(column);
    }
  } else if constexpr (std::same_as<T, bool>) {
    return _statement.integer(column) != 0;
  } else if constexpr (std::integral<T>) {
    return static_cast<T>(_statement.integer(column));
  } else if constexpr (std::floating_point<T>) {
    return static_cast<T>(_statement.real(column));
  } else if constexpr (std::same_as<T, std::string_view>) {
    return _statement.text(column);
  } else if constexpr (std::same_as<T, std::span<const std::byte>>) {
    return _statement.blob(column);
  } else if constexpr (std::same_as<T, std::string>) {
    return std::string(_statement.text(column));
  } else if constexpr (std::same_as<T, TimePoint>) {
    return momentOf(_statement.text(column)).value_or(TimePoint{});
  } else {
    static_assert(std::same_as<T, Blob>, "no such column type");
    const auto bytes = _statement.blob(column);
    return Blob(bytes.begin(), bytes.end());
  }
}

}  // namespace velorin::sqlite
