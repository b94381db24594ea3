// A regular file that is read at any place.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <utility>

#include "foundation/FileDescriptor.h"
#include "foundation/Result.h"

namespace velorin {

/// Owns a descriptor. The path is bytes: names that are not UTF-8 work like any other. One thread
/// at a time.
class RegularFile {
 public:
  /// Opens for reading and never blocks on anything but a file: a folder, a pipe, a socket or a
  /// device is refused. The error is one line that says what is wrong; it does not repeat the path.
  static Result<RegularFile, std::string> open(const std::string& path);

  int descriptor() const noexcept { return _descriptor.get(); }
  /// In bytes, as it was when the file was opened.
  std::uint64_t size() const noexcept { return _size; }

  /// Fills the destination from the offset on; fewer bytes at the end of the file, and where the
  /// disk fails. Interrupted calls are taken up again.
  std::size_t read(std::uint64_t offset, std::span<std::byte> destination) const noexcept;

 private:
  explicit RegularFile(FileDescriptor descriptor) noexcept : _descriptor(std::move(descriptor)) {}

  FileDescriptor _descriptor;
  std::uint64_t _size = 0;
};

}  // namespace velorin
