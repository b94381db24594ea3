// Playlists come from M3U files and go to them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "library/DatabaseHandle.h"

namespace velorin {

/// Why no playlist could be made of a file.
struct M3UError : VelorinDatabaseError {
  static constexpr const char* kDomain = "M3U";
  enum class Code { empty = 1, noMatch = 2, notCreated = 3, unreadable = 4 };

  M3UError(Code code, std::string text);

  Code code;
};

/// Stateless. Any thread but the render thread; failures throw M3UError or VelorinDatabaseError.
class M3UManager {
 public:
  explicit M3UManager(const DatabaseHandle& database) : _database(database) {}

  struct ParsedEntry {
    std::string path;  ///< absolute
    std::optional<double> duration;
    std::optional<std::string> title;
  };
  static std::vector<ParsedEntry> parse(const std::string& file);

  struct Imported {
    std::int64_t playlistId = 0;
    std::string name;
    std::size_t entries = 0;            ///< in the file
    std::vector<std::string> notFound;  ///< the paths that match no track of the library
  };
  /// Makes a playlist of what the library holds of the file's entries, under the file's name, or
  /// that name with a number where it is taken.
  Imported importPlaylist(const std::string& file) const;

  /// The text of an extended M3U file with the playlist's tracks.
  std::string exportPlaylist(std::int64_t playlistId) const;

 private:
  const DatabaseHandle& _database;
};

}  // namespace velorin
