#include "library/sqlite/Connection.h"

#include <sqlite3.h>
#include <unistd.h>

namespace velorin::sqlite {
namespace {

// Another program, such as a second `velorin`, may hold the file for the length of a transaction.
constexpr int kBusyTimeoutMs = 5000;

// More texts than the program has; only statements with lists of odd lengths come and go.
constexpr std::size_t kCachedStatements = 200;

/// SQLite reads a WAL database with the help of files beside it, which it cannot make where the
/// folder forbids it. What nobody can change may be read as it stands, unless a journal lies there
/// that holds a part of it.
bool standsStill(const std::filesystem::path& file) {
  const auto beside = [&](const char* suffix) { return file.native() + suffix; };
  const std::string folder = file.has_parent_path() ? file.parent_path().native() : ".";
  return ::access(file.c_str(), R_OK) == 0 && ::access(folder.c_str(), W_OK) != 0 &&
         ::access(beside("-wal").c_str(), F_OK) != 0 &&
         ::access(beside("-journal").c_str(), F_OK) != 0;
}

std::string unchangingURI(const std::filesystem::path& file) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  const std::string path = std::filesystem::absolute(file);
  std::string uri = "file://";
  for (const char each : path) {
    const auto byte = static_cast<unsigned char>(each);
    const bool isPlain = byte == '/' || (byte >= 'a' && byte <= 'z') ||
                         (byte >= 'A' && byte <= 'Z') || (byte >= '0' && byte <= '9');
    if (isPlain) {
      uri += each;
    } else {
      uri += '%';
      uri += kDigits[byte >> 4];
      uri += kDigits[byte & 15];
    }
  }
  return uri + "?immutable=1";
}

}  // namespace

Connection::Connection(const std::filesystem::path& file, Access access) {
  // Reading a WAL database takes the right to write too: the files beside it are shared memory.
  const int create = access == Access::readWrite ? SQLITE_OPEN_CREATE : 0;
  const bool isStill = standsStill(file);
  const std::string name = isStill ? unchangingURI(file) : file.native();
  const int mode =
      isStill ? SQLITE_OPEN_READONLY | SQLITE_OPEN_URI : SQLITE_OPEN_READWRITE | create;
  const int result = sqlite3_open_v2(name.c_str(), &_connection,
                                     mode | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE, nullptr);
  if (result != SQLITE_OK) {
    const SqliteError error(result, sqlite3_errstr(result));
    sqlite3_close_v2(_connection);
    throw error;
  }
  sqlite3_busy_timeout(_connection, kBusyTimeoutMs);
}

Connection::~Connection() {
  _cache.clear();
  sqlite3_close_v2(_connection);
}

std::unique_ptr<Statement> Connection::compile(std::string_view sql, std::size_t* consumed) {
  _compiledChanges = 0;
  auto statement = std::make_unique<Statement>(_connection, sql, consumed);
  statement->changes = _compiledChanges;
  return statement;
}

void Connection::executeScript(std::string_view sql) {
  while (!sql.empty()) {
    std::size_t consumed = 0;
    const auto statement = compile(sql, &consumed);
    if (!statement->isEmpty()) {
      _changes |= statement->changes;
      while (statement->step()) {
      }
    }
    sql.remove_prefix(consumed);
  }
}

std::unique_ptr<Statement> Connection::take(std::string_view sql) {
  if (const auto found = _cache.find(sql); found != _cache.end()) {
    auto statement = std::move(found->second);
    _cache.erase(found);
    return statement;
  }
  return compile(sql);
}

void Connection::giveBack(std::string_view sql, std::unique_ptr<Statement> statement) noexcept {
  statement->reset();
  try {
    if (_cache.size() >= kCachedStatements) _cache.erase(_cache.begin());
    _cache.insert_or_assign(std::string(sql), std::move(statement));
  } catch (const std::bad_alloc&) {
    // The statement is compiled anew next time.
  }
}

std::int64_t Connection::lastInsertedId() const noexcept {
  return sqlite3_last_insert_rowid(_connection);
}

std::int64_t Connection::changedRows() const noexcept {
  return sqlite3_changes64(_connection);
}

bool Connection::isInTransaction() const noexcept {
  return sqlite3_get_autocommit(_connection) == 0;
}

void Connection::setChangeClassifier(ChangeClassifier classifier) {
  _classifier = classifier;
  _cache.clear();
  sqlite3_set_authorizer(_connection, classifier == nullptr ? nullptr : &Connection::authorize,
                         this);
}

unsigned Connection::takeChanges() noexcept {
  return std::exchange(_changes, 0U);
}

int Connection::authorize(void* self, int action, const char* first, const char* second,
                          const char* /*database*/, const char* /*trigger*/) {
  auto& connection = *static_cast<Connection*>(self);
  switch (action) {
    case SQLITE_INSERT:
    case SQLITE_DELETE:
      connection._compiledChanges |= connection._classifier(first, {});
      break;
    case SQLITE_UPDATE:
      connection._compiledChanges |= connection._classifier(first, second);
      break;
    default:
      break;
  }
  return SQLITE_OK;
}

void Cursor::requireReadOnly(std::string_view sql) const {
  if (!_statement->isReadOnly()) {
    throw VelorinDatabaseError("a reading operation tried to write: " + std::string(sql));
  }
}

std::int64_t Writer::runToEnd(Statement& statement) {
  connection().noteChanges(statement.changes);
  while (statement.step()) {
  }
  return connection().changedRows();
}

}  // namespace velorin::sqlite
