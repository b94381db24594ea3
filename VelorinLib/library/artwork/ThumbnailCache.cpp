#include "library/artwork/ThumbnailCache.h"

#include <fmt/format.h>

namespace velorin {

std::string ThumbnailCache::key(std::int64_t albumId, int size) {
  return fmt::format("album-{}-{}", albumId, size);
}

ThumbnailCache::Image ThumbnailCache::image(std::int64_t albumId, int size) {
  const auto found = _byKey.find(key(albumId, size));
  if (found == _byKey.end()) return {};
  _entries.splice(_entries.begin(), _entries, found->second);
  return found->second->image;
}

void ThumbnailCache::setImage(std::int64_t albumId, int size, Image image) {
  std::string name = key(albumId, size);
  if (const auto found = _byKey.find(name); found != _byKey.end()) remove(found->second);
  const std::size_t cost =
      static_cast<std::size_t>(image->width) * static_cast<std::size_t>(image->height) * 4;
  _entries.push_front({name, std::move(image), cost});
  _byKey.emplace(std::move(name), _entries.begin());
  _totalCost += cost;
  while (_entries.size() > kCountLimit || _totalCost > kTotalCostLimit) {
    remove(std::prev(_entries.end()));
  }
}

void ThumbnailCache::remove(Entries::iterator entry) {
  _totalCost -= entry->cost;
  _byKey.erase(entry->key);
  _entries.erase(entry);
}

void ThumbnailCache::invalidate(std::int64_t albumId) {
  for (const int size : kSizes) {
    if (const auto found = _byKey.find(key(albumId, size)); found != _byKey.end()) {
      remove(found->second);
    }
  }
  ++_generation;
  if (_changed) _changed();
}

void ThumbnailCache::removeAllObjects() {
  _entries.clear();
  _byKey.clear();
  _totalCost = 0;
}

}  // namespace velorin
