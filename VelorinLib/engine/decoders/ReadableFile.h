// Bytes to decode from, on disk or in memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace velorin {

/// A file as a decoder reads it. One user at a time.
class ReadableFile {
 public:
  virtual ~ReadableFile() = default;

  /// Up to `count` bytes; empty at the end of the file or on an error.
  virtual std::vector<std::byte> read(std::size_t count) = 0;

  /// Copies up to destination.size() bytes and returns how many; 0 at the end or on an error.
  virtual std::size_t readInto(std::span<std::byte> destination) noexcept = 0;

  /// Moves to an absolute offset in bytes. Throws std::system_error when that fails.
  virtual void seek(std::uint64_t offset) = 0;

  /// Current offset in bytes, 0 on an error.
  virtual std::uint64_t offset() const noexcept = 0;

  /// Length in bytes.
  virtual std::uint64_t size() const noexcept = 0;
};

}  // namespace velorin
