#include "platform/files/FileCopy.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <string_view>
#include <vector>

namespace velorin {
namespace {

int copyBytes(int from, int to, off_t position) {
  std::vector<char> buffer(256 * 1024);
  for (;;) {
    const ssize_t got = ::pread(from, buffer.data(), buffer.size(), position);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return errno;
    if (got == 0) return 0;
    for (ssize_t done = 0; done < got;) {
      const ssize_t put =
          ::pwrite(to, buffer.data() + done, static_cast<std::size_t>(got - done), position + done);
      if (put < 0 && errno == EINTR) continue;
      if (put < 0) return errno;
      done += put;
    }
    position += got;
  }
}

/// True for what an ordinary user set, which must not get lost.
bool mustBeKept(std::string_view attribute) {
  return attribute.starts_with("user.") || attribute.starts_with("system.posix_acl");
}

int copyExtendedAttributes(int from, int to) {
  const ssize_t length = ::flistxattr(from, nullptr, 0);
  if (length < 0) return errno == ENOTSUP ? 0 : errno;
  std::vector<char> names(static_cast<std::size_t>(length));
  const ssize_t listed = ::flistxattr(from, names.data(), names.size());
  if (listed < 0) return errno;
  std::vector<char> value;
  for (const char* name = names.data(); name < names.data() + listed;
       name += std::string_view(name).size() + 1) {
    const ssize_t size = ::fgetxattr(from, name, nullptr, 0);
    ssize_t got = -1;
    if (size >= 0) {
      value.resize(static_cast<std::size_t>(size));
      got = ::fgetxattr(from, name, value.data(), value.size());
    }
    const bool isKept =
        got >= 0 && ::fsetxattr(to, name, value.data(), static_cast<std::size_t>(got), 0) == 0;
    if (!isKept && mustBeKept(name)) return errno;
  }
  return 0;
}

}  // namespace

int copyContent(int from, int to) {
  if (::ioctl(to, FICLONE, from) == 0) return 0;
  off_t source = 0;
  off_t target = 0;
  for (;;) {
    constexpr std::size_t kStep = 64U << 20;
    const ssize_t copied = ::copy_file_range(from, &source, to, &target, kStep, 0);
    if (copied > 0) continue;
    if (copied < 0 && errno == EINTR) continue;
    if (copied < 0 && (errno == ENOSPC || errno == EDQUOT || errno == EIO)) return errno;
    // At the end there is nothing left; where the kernel cannot copy, everything is.
    return copyBytes(from, to, target);
  }
}

int copyAttributes(int from, int to) {
  struct stat status {};
  struct stat own {};
  if (::fstat(from, &status) != 0 || ::fstat(to, &own) != 0) return errno;
  mode_t mode = status.st_mode & 07777;
  // The group alone is what an ordinary user may still change.
  if ((own.st_uid != status.st_uid || own.st_gid != status.st_gid) &&
      ::fchown(to, status.st_uid, status.st_gid) != 0) {
    const bool groupKept = ::fchown(to, static_cast<uid_t>(-1), status.st_gid) == 0;
    mode &= groupKept && own.st_uid == status.st_uid ? 03777U : 0777U;
  }
  if (int code = copyExtendedAttributes(from, to)) return code;
  if (::fchmod(to, mode) != 0) return errno;
  const std::array<timespec, 2> times = {status.st_atim, timespec{0, UTIME_OMIT}};
  // A file system that keeps no such time is no obstacle.
  ::futimens(to, times.data());
  return 0;
}

}  // namespace velorin
