#include "records/PinnedItem.h"

#include <array>
#include <cstddef>

namespace velorin {
namespace {

// In the order of the enumeration.
constexpr std::array<std::string_view, 6> kTypes{"song",  "playlist", "artist",
                                                 "album", "genre",    "composer"};

}  // namespace

std::string_view rawValue(PinnedItemType type) noexcept {
  const auto at = static_cast<std::size_t>(type);
  return at < kTypes.size() ? kTypes[at] : std::string_view{};
}

std::optional<PinnedItemType> pinnedItemType(std::string_view rawValue) noexcept {
  for (std::size_t i = 0; i < kTypes.size(); ++i) {
    if (kTypes[i] == rawValue) return static_cast<PinnedItemType>(i);
  }
  return std::nullopt;
}

}  // namespace velorin
