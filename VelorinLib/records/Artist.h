// A row of the table "artists".
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace velorin {

struct Artist {
  std::optional<std::int64_t> id;  ///< empty until the row is inserted
  std::string name;                ///< unique without regard to the case of A to Z

  bool operator==(const Artist&) const = default;
};

}  // namespace velorin
