#include "engine/memory/MemoryFileHandle.h"

#include <algorithm>
#include <cstring>
#include <filesystem>

#include "foundation/Log.h"

namespace velorin {

std::unique_ptr<MemoryFileHandle> MemoryFileHandle::open(const std::string& path,
                                                         std::int64_t limit, StorageCache& cache,
                                                         StorageCache::Role role) {
  std::shared_ptr<const MemoryStorage> storage = cache.find(path);
  if (storage) {
    log::line("📦 Reusing cached memory storage for: {}",
              std::filesystem::path(path).filename().native());
  } else {
    storage = MemoryStorage::load(path, limit);
    if (!storage) return nullptr;
  }
  cache.keep(storage, role);
  return std::make_unique<MemoryFileHandle>(std::move(storage));
}

MemoryFileHandle::MemoryFileHandle(std::shared_ptr<const MemoryStorage> storage) noexcept
    : _storage(std::move(storage)) {
  ++_storage->_activeReaders;
}

MemoryFileHandle::~MemoryFileHandle() {
  --_storage->_activeReaders;
}

std::vector<std::byte> MemoryFileHandle::read(std::size_t count) {
  const auto rest = bytes().subspan(_position);
  const auto taken = rest.first(std::min(count, rest.size()));
  _position += taken.size();
  return {taken.begin(), taken.end()};
}

std::size_t MemoryFileHandle::readInto(std::span<std::byte> destination) noexcept {
  const auto rest = bytes().subspan(_position);
  const std::size_t count = std::min(destination.size(), rest.size());
  if (count > 0) std::memcpy(destination.data(), rest.data(), count);
  _position += count;
  return count;
}

void MemoryFileHandle::seek(std::uint64_t offset) noexcept {
  _position = static_cast<std::size_t>(std::min<std::uint64_t>(offset, size()));
}

}  // namespace velorin
