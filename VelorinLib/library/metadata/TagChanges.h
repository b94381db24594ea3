// One edit of tags, and what became of it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace velorin {

/// An absent value leaves the field alone, an empty text removes it, a clear flag removes the
/// number and wins over a value. Numbers begin at 1: 0 leaves the field alone, -1 removes it.
struct TagChanges {
  std::optional<std::string> title = {};
  std::optional<std::string> artistName = {};
  std::optional<std::string> albumTitle = {};
  std::optional<int> trackNumber = {};
  std::optional<int> discNumber = {};
  std::optional<int> year = {};
  std::optional<std::string> genre = {};
  std::optional<std::string> composer = {};
  std::optional<std::string> conductor = {};
  std::optional<std::string> comment = {};
  std::optional<std::string> lyrics = {};
  bool clearTrackNumber = false;
  bool clearDiscNumber = false;
  bool clearYear = false;

  bool operator==(const TagChanges&) const = default;
};

/// What an edit does to a number: -1 removes it, 0 leaves it, 1 or more is the new value.
inline int numberEdit(const std::optional<int>& value, bool clear) {
  if (clear || value.value_or(0) < 0) return -1;
  return value.value_or(0);
}

struct TagWriteResult {
  std::int64_t trackId = 0;
  std::string filePath = {};  ///< empty for a track that is not in the library
  bool success = false;
  std::optional<std::string> error = {};
  std::optional<std::string> detail = {};  ///< why, where the error alone does not tell

  bool operator==(const TagWriteResult&) const = default;
};

}  // namespace velorin
