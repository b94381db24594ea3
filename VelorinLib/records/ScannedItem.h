// One file, or one CUE track of a file, on its way into the library.
#pragma once

#include <optional>
#include <string>

#include "records/Track.h"

namespace velorin {

struct ScannedItem {
  std::string artistName;
  std::string albumTitle;
  std::optional<int> year;
  std::optional<std::string> albumGenre;
  Track track;  ///< without id, albumId and artistId
  std::optional<std::string> artworkPath;
};

}  // namespace velorin
