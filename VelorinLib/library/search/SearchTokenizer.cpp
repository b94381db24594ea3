#include "library/search/SearchTokenizer.h"

#include <sqlite3.h>

namespace velorin {
namespace {

/// FTS5 hands its interface out through a pointer bound to a statement; see "Extending FTS5" in
/// SQLite's documentation.
fts5_api* fts5Of(sqlite3* connection) {
  fts5_api* api = nullptr;
  sqlite3_stmt* statement = nullptr;
  if (sqlite3_prepare_v2(connection, "SELECT fts5(?1)", -1, &statement, nullptr) == SQLITE_OK) {
    sqlite3_bind_pointer(statement, 1, static_cast<void*>(&api), "fts5_api_ptr", nullptr);
    sqlite3_step(statement);
  }
  sqlite3_finalize(statement);
  if (api == nullptr) {
    throw sqlite::SqliteError(SQLITE_ERROR, "this SQLite was built without full-text search");
  }
  return api;
}

}  // namespace

class SearchTokenizer::Tokenizer {
 public:
  Tokenizer(fts5_api* api, const char* name, std::vector<const char*> arguments) {
    void* data = nullptr;
    int result = api->xFindTokenizer(api, name, &data, &_methods);
    if (result == SQLITE_OK) {
      result =
          _methods.xCreate(data, arguments.data(), static_cast<int>(arguments.size()), &_tokenizer);
    }
    if (result != SQLITE_OK) {
      throw sqlite::SqliteError(result, std::string("no tokenizer \"") + name + "\"");
    }
  }
  ~Tokenizer() { _methods.xDelete(_tokenizer); }
  Tokenizer(const Tokenizer&) = delete;
  Tokenizer& operator=(const Tokenizer&) = delete;

  std::vector<std::string> tokens(std::string_view text, int flags, std::size_t most) {
    Collected collected{{}, most};
    const int result = _methods.xTokenize(_tokenizer, &collected, flags, text.data(),
                                          static_cast<int>(text.size()), &Tokenizer::collect);
    // SQLITE_DONE is our own word for enough.
    if (result != SQLITE_OK && result != SQLITE_DONE) {
      throw sqlite::SqliteError(result, sqlite3_errstr(result));
    }
    return std::move(collected.tokens);
  }

 private:
  struct Collected {
    std::vector<std::string> tokens;
    std::size_t most;
  };

  static int collect(void* context, int /*flags*/, const char* token, int size, int /*start*/,
                     int /*end*/) {
    auto& collected = *static_cast<Collected*>(context);
    if (collected.tokens.size() == collected.most) return SQLITE_DONE;
    try {
      collected.tokens.emplace_back(token, static_cast<std::size_t>(size));
    } catch (const std::bad_alloc&) {
      return SQLITE_NOMEM;
    }
    return SQLITE_OK;
  }

  fts5_tokenizer _methods{};
  Fts5Tokenizer* _tokenizer = nullptr;
};

SearchTokenizer::SearchTokenizer() {
  fts5_api* const api = fts5Of(_connection.handle());
  _ascii = std::make_unique<Tokenizer>(api, "ascii", std::vector<const char*>{});
  _porter = std::make_unique<Tokenizer>(api, "porter", std::vector<const char*>{"unicode61"});
  _connection.executeScript(
      "CREATE VIRTUAL TABLE patterns USING fts5(title, artistName, albumTitle, "
      "tokenize='porter unicode61')");
}

SearchTokenizer::~SearchTokenizer() = default;

std::vector<std::string> SearchTokenizer::words(std::string_view text, std::size_t most) {
  return _ascii->tokens(text, FTS5_TOKENIZE_QUERY, most);
}

std::vector<std::string> SearchTokenizer::terms(std::string_view word) {
  return _porter->tokens(word, FTS5_TOKENIZE_QUERY | FTS5_TOKENIZE_PREFIX, word.size());
}

bool SearchTokenizer::isPattern(const std::string& pattern) {
  try {
    sqlite::Reader(_connection)
        .first<std::int64_t>("SELECT rowid FROM patterns WHERE patterns MATCH ?", pattern);
    return true;
  } catch (const VelorinDatabaseError&) {
    return false;
  }
}

}  // namespace velorin
