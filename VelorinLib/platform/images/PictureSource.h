// Where a picture's bytes come from: memory or a file, read forward.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "foundation/Result.h"
#include "platform/images/Bitmap.h"

namespace velorin::images {

/// One thread. The decoders call it from inside C libraries, so nothing here throws.
class PictureSource {
 public:
  virtual ~PictureSource() = default;

  /// Up to `size` bytes from `offset` on. 0 at the end, and also where the file cannot be read.
  virtual std::size_t readAt(std::uint64_t offset, std::uint8_t* into,
                             std::size_t size) noexcept = 0;
  /// Bytes in all.
  virtual std::uint64_t size() const noexcept = 0;

  /// The next bytes; fewer than asked for only at the end.
  std::size_t read(std::uint8_t* into, std::size_t size) noexcept {
    std::size_t filled = 0;
    while (filled < size) {
      const std::size_t got = readAt(_offset, into + filled, size - filled);
      if (got == 0) break;
      filled += got;
      _offset += got;
    }
    return filled;
  }

 private:
  std::uint64_t _offset = 0;
};

/// The bytes must outlive it.
std::unique_ptr<PictureSource> memorySource(std::span<const std::uint8_t> bytes);

/// Fails for what is not a regular file of at most kMaxPictureFileBytes.
Result<std::unique_ptr<PictureSource>, ImageError> fileSource(const std::string& path);

}  // namespace velorin::images
