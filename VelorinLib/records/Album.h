// A row of the table "albums".
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace velorin {

/// An album's key is its title, without regard to the case of A to Z, and its artist.
struct Album {
  std::optional<std::int64_t> id;  ///< empty until the row is inserted
  std::string title;
  std::int64_t artistId = 0;
  std::optional<int> year;
  std::optional<std::string> artworkPath;  ///< of the cached cover
  std::optional<std::string> genre;
  std::optional<std::string> worstFormat;     ///< of its tracks, the one that ranks lowest
  std::optional<std::string> accentColorHex;  ///< drawn from the cover

  bool operator==(const Album&) const = default;
};

}  // namespace velorin
