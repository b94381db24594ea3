// How the tag library reads a file. Internal to the metadata folder: its own header is a heavy one.
#pragma once

#include <taglib/tiostream.h>

#include <array>
#include <cstddef>
#include <string>

#include "platform/files/RegularFile.h"

namespace velorin {

/// The name by which the tag library is to choose its reader: the path itself, unless the first
/// bytes of the file are beyond doubt those of another kind than its extension says; then a name
/// with the extension of that kind. Pure.
std::string tagFileName(const std::string& path, std::string_view head);

/// Read-only stream over a regular file. The tag library walks a file in steps of a few bytes, so
/// they come out of a window that is read at once. One opening reads kMostBytes at most, then the
/// stream seems to end: no file makes its reader work without end.
class TagStream final : public TagLib::IOStream {
 public:
  static constexpr std::size_t kWindowBytes = 16 * 1024;
  static constexpr std::uint64_t kMostBytes = 512ULL << 20;

  /// The path is that by which the kind of the file is told, see tagFileName.
  TagStream(RegularFile file, const std::string& path);

  TagLib::FileName name() const override { return _name.c_str(); }
  TagLib::ByteVector readBlock(unsigned long length) override;
  void seek(long offset, Position position = Beginning) override;
  long tell() const override { return static_cast<long>(_position); }
  long length() override { return static_cast<long>(_file.size()); }
  bool readOnly() const override { return true; }
  bool isOpen() const override { return true; }

  // The stream is read-only: these do nothing.
  void writeBlock(const TagLib::ByteVector&) override {}
  void insert(const TagLib::ByteVector&, unsigned long, unsigned long) override {}
  void removeBlock(unsigned long, unsigned long) override {}
  void truncate(long) override {}

 private:
  bool fillWindow(std::uint64_t position);

  const RegularFile _file;
  std::string _name;
  std::uint64_t _position = 0;
  std::uint64_t _bytesLeft = kMostBytes;
  std::array<std::byte, kWindowBytes> _window;
  std::uint64_t _windowStart = 0;
  std::size_t _windowSize = 0;
};

}  // namespace velorin
