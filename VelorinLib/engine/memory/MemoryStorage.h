// One file's bytes in RAM.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

namespace velorin {

/// Tells one state of a file from another: which file it is, how long, and when it was written.
struct FileIdentity {
  dev_t device = 0;
  ino_t inode = 0;
  std::int64_t size = 0;
  std::int64_t modified = 0;  ///< nanoseconds since 1970

  bool operator==(const FileIdentity&) const = default;

  /// Empty when the file cannot be asked. May block for as long as the file's volume does.
  static std::optional<FileIdentity> of(const std::string& path) noexcept;
};

/// An image of a file, which never changes: any number of MemoryFileHandles read it at once, on any
/// threads. It lives as long as somebody holds it.
class MemoryStorage {
 public:
  /// Reads a regular file of 1 to `limit` bytes whole. Null when that is not possible; except for
  /// a file that is missing, unreadable or empty, which whoever opens it next reports, the log says
  /// why. Blocks for as long as the file does. The system is asked not to cache what is read.
  static std::shared_ptr<const MemoryStorage> load(const std::string& path, std::int64_t limit);

  /// An image of bytes that are no file's.
  static std::shared_ptr<const MemoryStorage> copyOf(std::span<const std::byte> bytes);

  MemoryStorage(const MemoryStorage&) = delete;
  MemoryStorage& operator=(const MemoryStorage&) = delete;

  std::span<const std::byte> bytes() const noexcept { return {_buffer.get(), _fileSize}; }
  /// The path it was read from.
  const std::string& filePath() const noexcept { return _filePath; }
  /// What the file was when it was read.
  const FileIdentity& identity() const noexcept { return _identity; }

  /// MemoryFileHandles that read it now.
  int activeReaders() const noexcept { return _activeReaders.load(); }

 private:
  friend class MemoryFileHandle;
  struct Free {
    void operator()(void* block) const noexcept;
  };
  using Buffer = std::unique_ptr<std::byte, Free>;

  MemoryStorage(std::string path, FileIdentity identity, Buffer buffer, std::size_t size) noexcept;

  const std::string _filePath;
  const FileIdentity _identity;
  const Buffer _buffer;
  const std::size_t _fileSize;
  mutable std::atomic<int> _activeReaders{0};
};

}  // namespace velorin
