#include "engine/decoders/FileHandle.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <limits>
#include <system_error>

namespace velorin {
namespace {

std::string reasonFor(int error) {
  switch (error) {
    case ENOENT:
    case ENOTDIR:
      return "there is no such file; it was moved or removed, or its volume is away";
    case EACCES:
    case EPERM:
      return "no permission to read the file; make it readable for this user";
    case ENXIO:
      return "not a regular file but a socket or device; choose an audio file";
    default:
      return fmt::format("the file cannot be opened ({}); check the volume it is on",
                         std::system_category().message(error));
  }
}

}  // namespace

Result<std::unique_ptr<FileHandle>, std::string> FileHandle::open(
    const std::filesystem::path& path) {
  // O_NONBLOCK: opening a pipe that nobody writes to would otherwise wait for ever.
  int descriptor = -1;
  do {
    descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  } while (descriptor < 0 && errno == EINTR);
  if (descriptor < 0) return reasonFor(errno);

  std::unique_ptr<FileHandle> handle(new FileHandle(descriptor));
  struct stat status {};
  if (::fstat(descriptor, &status) != 0) return reasonFor(errno);
  if (S_ISDIR(status.st_mode)) return std::string("this is a folder; choose a file inside it");
  if (!S_ISREG(status.st_mode)) {
    return std::string("not a regular file but a pipe or device; copy its content to a file first");
  }
  // Music is read front to back; a larger read-ahead lets slow and spun-down disks rest.
  ::posix_fadvise(descriptor, 0, 0, POSIX_FADV_SEQUENTIAL);
  return handle;
}

FileHandle::~FileHandle() {
  ::close(_descriptor);
}

std::vector<std::byte> FileHandle::read(std::size_t count) {
  // Not more than is there, so that a huge count does not reserve memory for nothing.
  const std::uint64_t length = size();
  const std::uint64_t left = length > _offset ? length - _offset : 0;
  std::vector<std::byte> bytes(static_cast<std::size_t>(std::min<std::uint64_t>(count, left)));
  bytes.resize(readInto(bytes));
  return bytes;
}

std::size_t FileHandle::readInto(std::span<std::byte> destination) noexcept {
  std::size_t filled = 0;
  while (filled < destination.size()) {
    const ssize_t got = ::pread(_descriptor, destination.data() + filled,
                                destination.size() - filled, static_cast<off_t>(_offset));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    filled += static_cast<std::size_t>(got);
    _offset += static_cast<std::uint64_t>(got);
  }
  return filled;
}

void FileHandle::seek(std::uint64_t offset) {
  if (offset > static_cast<std::uint64_t>(std::numeric_limits<off_t>::max())) {
    throw std::system_error(EINVAL, std::generic_category(), "seek");
  }
  _offset = offset;
}

std::uint64_t FileHandle::size() const noexcept {
  struct stat status {};
  if (::fstat(_descriptor, &status) != 0) return 0;
  return static_cast<std::uint64_t>(status.st_size);
}

}  // namespace velorin
