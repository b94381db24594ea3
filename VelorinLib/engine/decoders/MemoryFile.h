// Bytes in memory as a decoder reads them.
#pragma once

#include <memory>
#include <vector>

#include "engine/decoders/ReadableFile.h"

namespace velorin {

/// A cursor into an immutable buffer that any number of cursors share, on any threads. Each
/// cursor has one user at a time.
class MemoryFile final : public ReadableFile {
 public:
  using Bytes = std::shared_ptr<const std::vector<std::byte>>;

  /// A null buffer reads as an empty file.
  explicit MemoryFile(Bytes bytes) noexcept : _bytes(std::move(bytes)) {}
  explicit MemoryFile(std::vector<std::byte> bytes)
      : _bytes(std::make_shared<const std::vector<std::byte>>(std::move(bytes))) {}

  std::vector<std::byte> read(std::size_t count) override;
  std::size_t readInto(std::span<std::byte> destination) noexcept override;
  /// 0 to size(); throws std::system_error beyond.
  void seek(std::uint64_t offset) override;
  std::uint64_t offset() const noexcept override { return _offset; }
  std::uint64_t size() const noexcept override { return _bytes ? _bytes->size() : 0; }

 private:
  const Bytes _bytes;
  std::size_t _offset = 0;
};

}  // namespace velorin
