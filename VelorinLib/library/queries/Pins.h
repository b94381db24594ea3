// What the listener has pinned to the sidebar.
#pragma once

#include <chrono>
#include <string_view>
#include <vector>

#include "library/DatabaseHandle.h"
#include "records/PinnedItem.h"

namespace velorin {

/// A pin names what it stands for and does not hold on to it: what was pinned may be gone.
///
/// Any thread but the render thread; errors are thrown as VelorinDatabaseError.
class Pins {
 public:
  using TimePoint = std::chrono::system_clock::time_point;

  explicit Pins(const DatabaseHandle& database) : _database(database) {}

  /// In the order in which they were pinned.
  std::vector<PinnedItem> fetchPins() const;

  /// Puts a pin behind the others. What is pinned already stays where it is, and is returned as it
  /// stands.
  PinnedItem pin(PinnedItemType type, std::string_view referenceId,
                 TimePoint now = std::chrono::system_clock::now());

  /// Nothing happens when it is not pinned.
  void unpin(PinnedItemType type, std::string_view referenceId);

 private:
  const DatabaseHandle& _database;
};

}  // namespace velorin
