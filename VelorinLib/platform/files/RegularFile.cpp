#include "platform/files/RegularFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace velorin {

Result<RegularFile, std::string> RegularFile::open(const std::string& path) {
  // O_NONBLOCK: opening a pipe that nobody writes to would otherwise wait for ever.
  int descriptor = -1;
  do {
    descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  } while (descriptor < 0 && errno == EINTR);
  if (descriptor < 0) return std::generic_category().message(errno);

  RegularFile file{FileDescriptor(descriptor)};
  struct stat status {};
  if (::fstat(descriptor, &status) != 0) return std::generic_category().message(errno);
  if (S_ISDIR(status.st_mode)) return std::string("this is a folder");
  if (!S_ISREG(status.st_mode)) return std::string("this is no regular file");
  file._size = static_cast<std::uint64_t>(status.st_size);
  return file;
}

std::size_t RegularFile::read(std::uint64_t offset,
                              std::span<std::byte> destination) const noexcept {
  std::size_t filled = 0;
  while (filled < destination.size()) {
    const ssize_t got = ::pread(descriptor(), destination.data() + filled,
                                destination.size() - filled, static_cast<off_t>(offset + filled));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    filled += static_cast<std::size_t>(got);
  }
  return filled;
}

}  // namespace velorin
