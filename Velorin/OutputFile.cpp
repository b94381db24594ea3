#include "OutputFile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <system_error>
#include <vector>

#include "foundation/Text.h"

namespace velorin {
namespace fs = std::filesystem;
namespace {

std::string adviceFor(int code) {
  switch (code) {
    case ENOSPC:
    case EDQUOT:
      return "make room or choose another place";
    case EFBIG:
      return "the file system takes no file of this size; choose another place";
    case EACCES:
    case EPERM:
    case EROFS:
      return "choose a place where you may write";
    case ENOENT:
    case ENOTDIR:
      return "make the folder first or choose another place";
    default:
      return "choose another place";
  }
}

OutputError errorFor(const fs::path& path, int code) {
  return {fmt::format("{}: {}: {}", text::pathForDisplay(path),
                      std::generic_category().message(code), adviceFor(code))};
}

/// Opens a new file beside the wanted one; the name of the new file is left in `temporary`.
int openBeside(const fs::path& path, fs::path& temporary) {
  const std::string pattern =
      (path.parent_path() / ("." + path.filename().string() + ".XXXXXX")).string();
  std::vector<char> name(pattern.begin(), pattern.end());
  name.push_back('\0');
  const int descriptor = ::mkostemp(name.data(), O_CLOEXEC);
  if (descriptor < 0) return -1;
  temporary = name.data();
  // mkostemp gives 0600; this is an ordinary file and gets ordinary permissions.
  const mode_t mask = ::umask(0);
  ::umask(mask);
  ::fchmod(descriptor, 0666 & ~mask);
  return descriptor;
}

}  // namespace

Result<std::unique_ptr<OutputFile>, OutputError> OutputFile::create(const fs::path& wanted) {
  // A link stays a link: the file that it names is the one to replace.
  std::error_code ignored;
  const fs::path path = fs::is_symlink(wanted, ignored) ? fs::weakly_canonical(wanted) : wanted;
  struct stat status {};
  const bool exists = ::stat(path.c_str(), &status) == 0;
  if (exists && S_ISDIR(status.st_mode)) {
    return OutputError{text::pathForDisplay(path) + ": is a folder: give the name of a file"};
  }
  if (exists && !S_ISREG(status.st_mode) && !S_ISCHR(status.st_mode)) {
    return OutputError{text::pathForDisplay(path) + ": is not a plain file: choose another name"};
  }
  fs::path temporary;
  const bool device = exists && S_ISCHR(status.st_mode);
  const int descriptor =
      device ? ::open(path.c_str(), O_WRONLY | O_CLOEXEC) : openBeside(path, temporary);
  if (descriptor < 0) return errorFor(path, errno);
  return std::unique_ptr<OutputFile>(new OutputFile(path, std::move(temporary), descriptor));
}

OutputFile::OutputFile(fs::path path, fs::path temporary, int descriptor)
    : _path(std::move(path)), _temporary(std::move(temporary)), _descriptor(descriptor) {}

OutputFile::~OutputFile() {
  if (_descriptor >= 0) ::close(_descriptor);
  if (!_temporary.empty()) ::unlink(_temporary.c_str());
}

bool OutputFile::fail(int code) {
  if (!_failed) _error = errorFor(_path, code);
  _failed = true;
  return false;
}

bool OutputFile::write(std::span<const std::byte> bytes) {
  if (_failed) return false;
  while (!bytes.empty()) {
    const ssize_t count = ::write(_descriptor, bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return fail(count < 0 ? errno : ENOSPC);
    bytes = bytes.subspan(static_cast<std::size_t>(count));
  }
  return true;
}

bool OutputFile::rewrite(std::uint64_t offset, std::span<const std::byte> bytes) {
  if (_failed) return false;
  while (!bytes.empty()) {
    const ssize_t count =
        ::pwrite(_descriptor, bytes.data(), bytes.size(), static_cast<off_t>(offset));
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return fail(count < 0 ? errno : ENOSPC);
    bytes = bytes.subspan(static_cast<std::size_t>(count));
    offset += static_cast<std::uint64_t>(count);
  }
  return true;
}

bool OutputFile::commit() {
  if (_failed) return false;
  const int descriptor = std::exchange(_descriptor, -1);
  // Some file systems report a full disk only here.
  if (::close(descriptor) != 0 && errno != EINTR) return fail(errno);
  if (_temporary.empty()) return true;
  if (::rename(_temporary.c_str(), _path.c_str()) != 0) return fail(errno);
  _temporary.clear();
  return true;
}

}  // namespace velorin
