// What the picture of each album was last looked for in, and whether one was there.
//
// An album without a picture leaves nothing in the cache by which the next pass could tell that it
// was tried. This table does, so that a file is opened again only when it changed.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>

namespace velorin {

struct ArtworkSource {
  std::uint64_t stamp = 0;  ///< see sourceStamp()
  bool hasPicture = false;

  bool operator==(const ArtworkSource&) const = default;
};

/// By album id.
using ArtworkSources = std::unordered_map<std::int64_t, ArtworkSource>;

/// A file in the state that it has: a hash of its path, its size and the moments of its last
/// changes. Nothing when it is not there or is no regular file. Asks for the file's status alone.
/// modified, where given, receives the time of modification in nanoseconds since 1970.
std::optional<std::uint64_t> sourceStamp(const std::string& path, std::int64_t* modified = nullptr);

/// The stored table; empty when there is none or it is damaged in any way: everything is then tried
/// once more. Reads no more than 64 MB. Blocks for the disk.
ArtworkSources readArtworkSources(const std::string& path);

/// Stores it, all or nothing. Failing costs no more than time at the next pass: a log line.
void writeArtworkSources(const std::string& path, const ArtworkSources& sources);

}  // namespace velorin
