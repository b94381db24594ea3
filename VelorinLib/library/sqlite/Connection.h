// One SQLite connection, used by one thread at a time.
//
// Reader and Writer are the two ways to use it: what only reads takes a Reader&, and the compiler
// keeps it from writing. Every failure throws SqliteError.
#pragma once

#include <filesystem>
#include <functional>
#include <unordered_map>

#include "library/sqlite/Statement.h"

namespace velorin::sqlite {

/// What a connection may do to its file.
enum class Access {
  readWrite,  ///< the file is made where it is missing
  readOnly,   ///< the file must be there; every statement that would change it fails
};

class Connection {
 public:
  /// Opens or creates the file. ":memory:" opens a database that dies with the connection. A file
  /// in a folder that cannot be written to, such as one of a read-only disk, is taken to stay as it
  /// is: it can be read, and every write fails.
  explicit Connection(const std::filesystem::path& file, Access access = Access::readWrite);
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  /// Runs each statement of a text, to its end.
  void executeScript(std::string_view sql);

  /// Takes a compiled statement out of the cache, or compiles it. A statement in use is not in the
  /// cache, so that the same text may run inside itself.
  std::unique_ptr<Statement> take(std::string_view sql);
  /// Resets it and puts it back.
  void giveBack(std::string_view sql, std::unique_ptr<Statement> statement) noexcept;

  std::int64_t lastInsertedId() const noexcept;
  /// Rows that the last INSERT, UPDATE or DELETE changed.
  std::int64_t changedRows() const noexcept;

  bool isInTransaction() const noexcept;

  /// Says what a statement changes, as a set of bits of the owner's own choice, from the tables and
  /// columns that it writes. Called while a statement is compiled, once for each; `column` is empty
  /// for INSERT and DELETE.
  using ChangeClassifier = unsigned (*)(std::string_view table, std::string_view column);
  void setChangeClassifier(ChangeClassifier classifier);
  /// The bits of all statements run since the last call.
  unsigned takeChanges() noexcept;
  void noteChanges(unsigned changes) noexcept { _changes |= changes; }

  sqlite3* handle() const noexcept { return _connection; }

 private:
  std::unique_ptr<Statement> compile(std::string_view sql, std::size_t* consumed = nullptr);
  static int authorize(void* self, int action, const char* first, const char* second,
                       const char* database, const char* trigger);

  sqlite3* _connection = nullptr;
  struct TextHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const noexcept {
      return std::hash<std::string_view>{}(text);
    }
  };
  std::unordered_map<std::string, std::unique_ptr<Statement>, TextHash, std::equal_to<>> _cache;
  ChangeClassifier _classifier = nullptr;
  unsigned _compiledChanges = 0;  ///< of the statement that is being compiled
  unsigned _changes = 0;
};

/// A statement out of the cache, given back at the end of its life.
class Borrowed {
 public:
  Borrowed(Connection& connection, std::string_view sql)
      : _connection(connection), _sql(sql), _statement(connection.take(sql)) {}
  ~Borrowed() { _connection.giveBack(_sql, std::move(_statement)); }
  Borrowed(const Borrowed&) = delete;
  Borrowed& operator=(const Borrowed&) = delete;

  Statement& operator*() const noexcept { return *_statement; }
  Statement* operator->() const noexcept { return _statement.get(); }

 private:
  Connection& _connection;
  std::string _sql;
  std::unique_ptr<Statement> _statement;
};

/// A running SELECT.
class Cursor {
 public:
  template <class... Arguments>
  Cursor(Connection& connection, std::string_view sql, const Arguments&... arguments)
      : _statement(connection, sql) {
    requireReadOnly(sql);
    _statement->bindAll(arguments...);
  }

  /// Advances to the next row; false at the end.
  bool next() { return _statement->step(); }
  Row row() const { return Row(*_statement); }
  template <class T>
  T get(int column) const {
    return row().get<T>(column);
  }

 private:
  void requireReadOnly(std::string_view sql) const;

  Borrowed _statement;
};

/// Access for reading. Arguments are bound in order; see Statement::bindAll.
class Reader {
 public:
  explicit Reader(Connection& connection) : _connection(connection) {}

  /// A walk over the rows. The text must be of a statement that cannot write.
  template <class... Arguments>
  Cursor query(std::string_view sql, const Arguments&... arguments) {
    return Cursor(_connection, sql, arguments...);
  }

  /// Calls use(row) for each row.
  template <class Use, class... Arguments>
  void each(std::string_view sql, Use&& use, const Arguments&... arguments) {
    Cursor cursor = query(sql, arguments...);
    while (cursor.next()) use(cursor.row());
  }

  /// The first column of the first row; empty without a row. A NULL reads as Row::get tells.
  template <class T, class... Arguments>
  std::optional<T> first(std::string_view sql, const Arguments&... arguments) {
    Cursor cursor = query(sql, arguments...);
    if (!cursor.next()) return std::nullopt;
    return cursor.get<T>(0);
  }

  /// The first column of all rows.
  template <class T, class... Arguments>
  std::vector<T> column(std::string_view sql, const Arguments&... arguments) {
    std::vector<T> values;
    Cursor cursor = query(sql, arguments...);
    while (cursor.next()) values.push_back(cursor.get<T>(0));
    return values;
  }

  Connection& connection() const noexcept { return _connection; }

 private:
  Connection& _connection;
};

/// Access for reading and writing, inside a transaction.
class Writer : public Reader {
 public:
  using Reader::Reader;

  /// Runs a statement to its end. Returns the number of rows that an INSERT, UPDATE or DELETE
  /// changed.
  template <class... Arguments>
  std::int64_t run(std::string_view sql, const Arguments&... arguments) {
    const Borrowed statement(connection(), sql);
    statement->bindAll(arguments...);
    return runToEnd(*statement);
  }

  std::int64_t lastInsertedId() const noexcept { return connection().lastInsertedId(); }

 private:
  std::int64_t runToEnd(Statement& statement);
};

}  // namespace velorin::sqlite
