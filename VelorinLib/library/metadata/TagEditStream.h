// How the tag library changes a file. Internal to the metadata folder.
#pragma once

#include <taglib/tiostream.h>

#include <memory>
#include <string>

namespace velorin {

/// Read-write stream over a regular file of ours. The tag library asks nobody whether its writing
/// worked; here the first failure is kept, after which nothing more is written.
class TagEditStream final : public TagLib::IOStream {
 public:
  /// Null when the file cannot be opened; errno tells why. The name is that by which the tag
  /// library chooses its reader.
  static std::unique_ptr<TagEditStream> open(const std::string& path, std::string name);
  ~TagEditStream() override;

  /// 0, or the number of the first error.
  int failure() const noexcept { return _failure; }

  TagLib::FileName name() const override { return _name.c_str(); }
  TagLib::ByteVector readBlock(unsigned long length) override;
  void writeBlock(const TagLib::ByteVector& data) override;
  void insert(const TagLib::ByteVector& data, unsigned long start, unsigned long replace) override;
  void removeBlock(unsigned long start, unsigned long length) override;
  void truncate(long length) override;
  void seek(long offset, Position position = Beginning) override;
  long tell() const override { return _position; }
  long length() override;
  bool readOnly() const override { return false; }
  bool isOpen() const override { return true; }

 private:
  TagEditStream(int descriptor, std::string name)
      : _descriptor(descriptor), _name(std::move(name)) {}
  std::size_t readAt(long offset, char* bytes, std::size_t count);
  void writeAt(long offset, const char* bytes, std::size_t count);
  /// Moves everything from one offset on to another.
  void moveTail(long from, long to);

  const int _descriptor;
  const std::string _name;
  long _position = 0;
  int _failure = 0;
};

}  // namespace velorin
