// Playlists come from M3U files and go to them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
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
    std::string path;  ///< absolute, precomposed, without "." and ".."
    std::optional<double> duration;
    std::optional<std::string> title;
    /// What else the line can mean, each as an absolute path: file names here are bytes, and the
    /// line may hold them without any of the changes that make `path`.
    std::vector<std::string> otherPaths = {};
  };
  /// Reads a file: "m3u8" as UTF-8, other extensions as UTF-8, else in a legacy encoding that the
  /// bytes speak for, else as Windows-1252. Throws M3UError where it cannot be read.
  static std::vector<ParsedEntry> parse(const std::string& file);
  /// The same for bytes that were read already; `folder` is what relative paths start from. Pure.
  static std::vector<ParsedEntry> parse(std::string_view bytes, bool isUTF8Only,
                                        const std::string& folder);

  struct Imported {
    std::int64_t playlistId = 0;
    std::string name;
    std::size_t entries = 0;            ///< in the file
    std::size_t tracks = 0;             ///< in the playlist
    std::vector<std::string> notFound;  ///< the paths that match no track of the library
  };
  /// Makes a playlist of what the library holds of the file's entries, under the file's name, or
  /// that name with a number where it is taken.
  ///
  /// An entry is the track of that very path; else, since libraries move, the one whose file and
  /// two folders above it have these names; else the one whose file has this name. Names are
  /// compared without regard to the case of A to Z, and the earliest row counts.
  Imported importPlaylist(const std::string& file) const;

  struct ExportTrack {
    std::string filePath;
    double duration = 0;  ///< seconds
    std::string artist;
    std::string title;
  };
  /// The text of an extended M3U file. It is UTF-8: a path that cannot be a line of UTF-8 text,
  /// since it holds a newline or other bytes, is percent-encoded, which parse() takes back. Pure.
  static std::string exportText(const std::vector<ExportTrack>& tracks);
  /// The same of a playlist's tracks.
  std::string exportPlaylist(std::int64_t playlistId) const;

 private:
  const DatabaseHandle& _database;
};

}  // namespace velorin
