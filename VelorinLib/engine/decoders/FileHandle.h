// A regular file on disk as a decoder reads it.
#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "engine/decoders/ReadableFile.h"
#include "foundation/Result.h"

namespace velorin {

/// ReadableFile over a POSIX descriptor. Interrupted calls are taken up again. The path is bytes:
/// names that are not UTF-8 work like any other.
class FileHandle final : public ReadableFile {
 public:
  /// Opens a regular file for reading and never blocks on anything else: a directory, a pipe, a
  /// socket or a device is refused. The error is one line that says what is wrong and what to do;
  /// it does not repeat the path.
  static Result<std::unique_ptr<FileHandle>, std::string> open(const std::filesystem::path& path);

  ~FileHandle() override;
  FileHandle(const FileHandle&) = delete;
  FileHandle& operator=(const FileHandle&) = delete;

  std::vector<std::byte> read(std::size_t count) override;
  std::size_t readInto(std::span<std::byte> destination) noexcept override;
  /// Any offset that the system can express, past the end too (reads then give nothing).
  void seek(std::uint64_t offset) override;
  std::uint64_t offset() const noexcept override { return _offset; }
  /// Asked of the system each time, so a file that grows or is cut while open is seen as it is.
  std::uint64_t size() const noexcept override;

 private:
  explicit FileHandle(int descriptor) noexcept : _descriptor(descriptor) {}

  const int _descriptor;
  std::uint64_t _offset = 0;
};

}  // namespace velorin
