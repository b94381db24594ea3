// How SQLite's full-text search cuts text up, asked of SQLite itself.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "library/sqlite/Connection.h"

struct fts5_api;
struct Fts5Tokenizer;

namespace velorin {

/// FTS5's own tokenizers and an empty full-text table, on a connection in memory of their own. One
/// thread at a time. Throws SqliteError.
class SearchTokenizer {
 public:
  SearchTokenizer();
  ~SearchTokenizer();
  SearchTokenizer(const SearchTokenizer&) = delete;
  SearchTokenizer& operator=(const SearchTokenizer&) = delete;

  /// The words of a text that a user typed, by the tokenizer "ascii": ASCII letters and digits, in
  /// lower case, and any byte above ASCII are parts of words; all else lies between them. No more
  /// than `most`.
  std::vector<std::string> words(std::string_view text, std::size_t most);

  /// The terms that tracks_fts looks for when it is asked for the word as a prefix: by its own
  /// tokenizer, "porter unicode61", which folds case and accents, cuts at the punctuation of all
  /// scripts and takes English endings off. Empty for a word of symbols only.
  std::vector<std::string> terms(std::string_view word);

  /// Whether a table such as tracks_fts takes the text as a pattern.
  bool isPattern(const std::string& pattern);

 private:
  /// A tokenizer of FTS5 with its arguments.
  class Tokenizer;

  sqlite::Connection _connection{":memory:"};
  std::unique_ptr<Tokenizer> _ascii;
  std::unique_ptr<Tokenizer> _porter;
};

}  // namespace velorin
