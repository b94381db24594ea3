// The pictures that are on the screen or were lately, in memory.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>

#include "platform/images/Bitmap.h"

namespace velorin {

/// Main thread. Drops what was not asked for the longest time when there are more than
/// kCountLimit entries or when they cost more than kTotalCostLimit.
class ThumbnailCache {
 public:
  using Image = std::shared_ptr<const Bitmap>;

  static constexpr std::size_t kCountLimit = 500;
  static constexpr std::size_t kTotalCostLimit = 52'428'800;  ///< bytes: pixels times 4
  /// Pixels of a side, as the views ask for them.
  static constexpr std::array<int, 12> kSizes{32,  40,  48,  64,  80,  120,
                                              160, 200, 280, 300, 400, 512};

  /// "album-<album id>-<size>"
  static std::string key(std::int64_t albumId, int size);

  /// Empty when it is not there.
  Image image(std::int64_t albumId, int size);
  void setImage(std::int64_t albumId, int size, Image image);

  /// The album has a new picture: removes it in all sizes, adds 1 to the generation and tells the
  /// observer, so that what shows the album draws again.
  void invalidate(std::int64_t albumId);
  void removeAllObjects();

  std::uint64_t generation() const { return _generation; }
  void setGenerationObserver(std::function<void()> changed) { _changed = std::move(changed); }

  std::size_t count() const { return _entries.size(); }
  std::size_t totalCost() const { return _totalCost; }

 private:
  struct Entry {
    std::string key;
    Image image;
    std::size_t cost = 0;
  };
  using Entries = std::list<Entry>;

  void remove(Entries::iterator entry);

  Entries _entries;  ///< the latest first
  std::unordered_map<std::string, Entries::iterator> _byKey;
  std::size_t _totalCost = 0;
  std::uint64_t _generation = 0;
  std::function<void()> _changed;
};

}  // namespace velorin
