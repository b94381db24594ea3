// A row of the table "pinnedItems".
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace velorin {

enum class PinnedItemType { song, playlist, artist, album, genre, composer };

/// The name of the case, which is what the table holds.
std::string_view rawValue(PinnedItemType type) noexcept;
std::optional<PinnedItemType> pinnedItemType(std::string_view rawValue) noexcept;

/// Something the listener keeps at hand.
struct PinnedItem {
  std::optional<std::int64_t> id;
  std::string type;         ///< the raw value of a PinnedItemType; other texts are passed over
  std::string referenceId;  ///< a row id as text, or the name of a genre or composer
  int position = 0;         ///< from 0
  std::chrono::system_clock::time_point createdAt;

  bool operator==(const PinnedItem&) const = default;
};

}  // namespace velorin
