#include "platform/images/PictureSource.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>

#include "platform/images/ImageDecoder.h"

namespace velorin::images {
namespace {

class MemorySource : public PictureSource {
 public:
  explicit MemorySource(std::span<const std::uint8_t> bytes) : _bytes(bytes) {}

  std::size_t readAt(std::uint64_t offset, std::uint8_t* into, std::size_t size) noexcept override {
    if (offset >= _bytes.size()) return 0;
    const std::size_t count = std::min(size, _bytes.size() - static_cast<std::size_t>(offset));
    std::memcpy(into, _bytes.data() + offset, count);
    return count;
  }
  std::uint64_t size() const noexcept override { return _bytes.size(); }

 private:
  std::span<const std::uint8_t> _bytes;
};

// Not a mapping: the file may be cut while it is read, and a share may go away.
class FileSource : public PictureSource {
 public:
  FileSource(int descriptor, std::uint64_t size) : _descriptor(descriptor), _size(size) {}
  ~FileSource() override { ::close(_descriptor); }
  FileSource(const FileSource&) = delete;
  FileSource& operator=(const FileSource&) = delete;

  std::size_t readAt(std::uint64_t offset, std::uint8_t* into, std::size_t size) noexcept override {
    if (offset >= _size) return 0;
    const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(size, _size - offset));
    ssize_t got = 0;
    do {
      got = ::pread(_descriptor, into, count, static_cast<off_t>(offset));
    } while (got < 0 && errno == EINTR);
    return got > 0 ? static_cast<std::size_t>(got) : 0;
  }
  std::uint64_t size() const noexcept override { return _size; }

 private:
  const int _descriptor;
  const std::uint64_t _size;
};

ImageError systemError(const char* what) {
  return {fmt::format("{}: {}", what, std::generic_category().message(errno))};
}

}  // namespace

std::unique_ptr<PictureSource> memorySource(std::span<const std::uint8_t> bytes) {
  return std::make_unique<MemorySource>(bytes);
}

Result<std::unique_ptr<PictureSource>, ImageError> fileSource(const std::string& path) {
  struct stat status {};
  // Before opening, because to open a device may already do something.
  if (::stat(path.c_str(), &status) != 0) return systemError("cannot open");
  if (!S_ISREG(status.st_mode)) return ImageError{"not a file"};
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (descriptor < 0) return systemError("cannot open");
  if (::fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) {
    ::close(descriptor);
    return ImageError{"not a file"};
  }
  const auto size = static_cast<std::uint64_t>(status.st_size);
  if (size > kMaxPictureFileBytes) {
    ::close(descriptor);
    return ImageError{
        fmt::format("the file is larger than {} MB", kMaxPictureFileBytes / 1'000'000)};
  }
  return std::unique_ptr<PictureSource>(std::make_unique<FileSource>(descriptor, size));
}

}  // namespace velorin::images
