// A row of the table "playlists".
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace velorin {

/// A plain playlist, whose tracks are rows of their own, or a smart one, whose tracks its rules
/// find. A deleted playlist is hidden and keeps its name.
struct Playlist {
  std::optional<std::int64_t> id;
  std::string name;  ///< unique without regard to the case of A to Z
  bool isSmartPlaylist = false;
  std::optional<std::string> rulesJSON;  ///< of a smart playlist
  bool isHidden = false;
  std::chrono::system_clock::time_point createdAt;
  std::chrono::system_clock::time_point updatedAt;

  bool operator==(const Playlist&) const = default;
};

}  // namespace velorin
