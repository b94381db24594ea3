// What a drag inside the program carries.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace velorin {

struct TrackIDsTransfer {
  struct Genre {
    std::string name;
    bool operator==(const Genre&) const = default;
  };
  struct Artist {
    std::int64_t id = 0;
    bool operator==(const Artist&) const = default;
  };
  struct Composer {
    std::string name;
    bool operator==(const Composer&) const = default;
  };
  struct Album {
    std::int64_t id = 0;
    bool operator==(const Album&) const = default;
  };
  /// The listing that was dragged as a whole.
  using Source = std::variant<Genre, Artist, Composer, Album>;

  std::vector<std::int64_t> trackIds;
  std::optional<Source> source;  ///< empty where single tracks were dragged

  bool operator==(const TrackIDsTransfer&) const = default;
};

}  // namespace velorin
