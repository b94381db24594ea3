// Bytes in RAM as a decoder reads them.
#pragma once

#include <memory>
#include <span>

#include "engine/decoders/ReadableFile.h"
#include "engine/memory/MemoryStorage.h"
#include "engine/memory/StorageCache.h"

namespace velorin {

/// A cursor into a MemoryStorage, which it keeps alive. One user at a time; any number of cursors
/// share a storage.
class MemoryFileHandle final : public ReadableFile {
 public:
  /// The file from RAM: the cache's image of it, whatever the limit, else read now (see
  /// MemoryStorage::load()) and kept in the cache. Null when it cannot be held in RAM.
  static std::unique_ptr<MemoryFileHandle> open(
      const std::string& path, std::int64_t limit, StorageCache& cache,
      StorageCache::Role role = StorageCache::Role::track);

  /// storage: not null.
  explicit MemoryFileHandle(std::shared_ptr<const MemoryStorage> storage) noexcept;
  /// Over a copy of the bytes.
  explicit MemoryFileHandle(std::span<const std::byte> bytes)
      : MemoryFileHandle(MemoryStorage::copyOf(bytes)) {}
  ~MemoryFileHandle() override;
  MemoryFileHandle(const MemoryFileHandle&) = delete;
  MemoryFileHandle& operator=(const MemoryFileHandle&) = delete;

  std::vector<std::byte> read(std::size_t count) override;
  std::size_t readInto(std::span<std::byte> destination) noexcept override;
  /// Past the end goes to the end.
  void seek(std::uint64_t offset) noexcept override;
  std::uint64_t offset() const noexcept override { return _position; }
  std::uint64_t size() const noexcept override { return bytes().size(); }

  /// All of it, for a library that reads memory by itself.
  std::span<const std::byte> bytes() const noexcept { return _storage->bytes(); }

  const MemoryStorage& storage() const noexcept { return *_storage; }

 private:
  const std::shared_ptr<const MemoryStorage> _storage;
  std::size_t _position = 0;
};

}  // namespace velorin
