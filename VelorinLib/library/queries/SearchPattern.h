// What a user types into a search field, as a pattern of FTS5.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velorin {

/// Each word of the text is looked for as the beginning of a word, and all of them must be found:
/// "Pink flo!" becomes "pink* flo*". Nothing in the text acts as an operator. Of a very long text
/// only the first 4 KiB, and of these the first 64 words, count.
class SearchPattern {
 public:
  /// Any bytes. Throws SqliteError only where SQLite itself does not work. Any thread but the
  /// render thread.
  explicit SearchPattern(std::string_view text);

  /// No word was in the text: the search finds nothing, and has no need of the library.
  bool isEmpty() const noexcept { return _match.empty(); }

  /// The right-hand side of MATCH.
  const std::string& match() const noexcept { return _match; }

  /// The beginnings of index terms that the pattern stands for, one for each word that holds any
  /// letter or digit, in order. Nothing when a word is a sequence of terms, as "don’t" with a
  /// typographer's apostrophe is: where a term stands in a title then matters.
  const std::optional<std::vector<std::string>>& prefixes() const noexcept { return _prefixes; }

 private:
  std::string _match;
  std::optional<std::vector<std::string>> _prefixes = std::vector<std::string>();
};

}  // namespace velorin
