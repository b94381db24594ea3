#include "engine/memory/StorageCache.h"

#include <algorithm>

#include "foundation/Log.h"

namespace velorin {

StorageCache::StorageCache(const std::vector<std::string>& pressureSources)
    : _memoryPressureSource(MemoryPressure::watch(pressureSources, [this] { dropAll(); })) {}

StorageCache& StorageCache::shared() {
  static auto* const cache = new StorageCache();
  return *cache;
}

std::shared_ptr<const MemoryStorage> StorageCache::find(const std::string& path) const {
  std::shared_ptr<const MemoryStorage> found;
  {
    MutexLock hold(_lock);
    // From the back: of two images of one path the later one was read after the file changed.
    for (auto image = _inUse.rbegin(); image != _inUse.rend() && !found; ++image) {
      const auto storage = image->lock();
      if (storage && storage->filePath() == path) found = storage;
    }
  }
  if (!found) return nullptr;
  const auto now = FileIdentity::of(path);
  return !now || *now == found->identity() ? found : nullptr;
}

void StorageCache::keep(std::shared_ptr<const MemoryStorage> storage, Role role) {
  std::vector<std::shared_ptr<const MemoryStorage>> dropped;  // freed without the lock
  MutexLock hold(_lock);
  std::erase_if(_inUse, [&](const auto& image) {
    const auto other = image.lock();
    return !other || other == storage;
  });
  _inUse.push_back(storage);
  if (std::ranges::find(_kept, storage) != _kept.end()) return;
  // Of a track that is no longer kept its neighbour is of no use, nor is a second neighbour.
  const std::size_t stays = role == Role::beside && !_kept.empty() ? 1 : 0;
  dropped.assign(_kept.begin() + static_cast<std::ptrdiff_t>(stays), _kept.end());
  _kept.resize(stays);
  _kept.push_back(std::move(storage));
}

void StorageCache::dropAll() {
  std::vector<std::shared_ptr<const MemoryStorage>> dropped;
  {
    MutexLock hold(_lock);
    dropped.swap(_kept);
    _inUse.clear();
  }
  // A shortage that lasts is told every other second.
  if (dropped.empty()) return;
  log::line("🧠 MemoryFileHandle: dropping in-RAM track cache due to system memory pressure");
}

}  // namespace velorin
