#include "foundation/AtomicFile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "foundation/FileDescriptor.h"
#include "foundation/Text.h"

namespace velorin {

namespace fs = std::filesystem;

namespace {

std::string describe(std::string_view what, const fs::path& path, int error) {
  return fmt::format("{} {}: {}", what, text::pathForDisplay(path),
                     std::generic_category().message(error));
}

bool writeAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(fd, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

std::optional<std::string> writeTemporary(const fs::path& path, std::string_view bytes) {
  // A file of its own: who hangs in the middle of writing an older one still holds that.
  ::unlink(path.c_str());
  FileDescriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (!file) return describe("cannot create", path, errno);
  if (!writeAll(file.get(), bytes) || ::fsync(file.get()) != 0 || !file.close()) {
    return describe("cannot write", path, errno);
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::string> replaceFile(const fs::path& target, std::string_view bytes) {
  std::error_code error;
  fs::path real = fs::weakly_canonical(target, error);
  if (error) real = target;
  const fs::path folder = real.parent_path();
  fs::create_directories(folder, error);
  if (error) return describe("cannot make the folder", folder, error.value());

  const fs::path temporary = folder / fs::path("." + real.filename().native() + ".new");
  if (auto failure = writeTemporary(temporary, bytes)) {
    ::unlink(temporary.c_str());
    return failure;
  }
  if (::rename(temporary.c_str(), real.c_str()) != 0) {
    const int reason = errno;
    ::unlink(temporary.c_str());
    return describe("cannot replace", real, reason);
  }
  // Without this a power cut may bring the old name entry back, which is still a whole file:
  // file systems that cannot sync a folder are therefore no failure.
  const FileDescriptor handle(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (handle) ::fsync(handle.get());
  return std::nullopt;
}

std::optional<std::string> readFile(const fs::path& path, std::string& failure) {
  // Not blocking: opening a pipe that lies under this name must not hang.
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat status {};
  if (!file || ::fstat(file.get(), &status) != 0) {
    failure = describe("cannot open", path, errno);
    return std::nullopt;
  }
  if (!S_ISREG(status.st_mode)) {
    failure = fmt::format("{} is not a file", text::pathForDisplay(path));
    return std::nullopt;
  }
  std::string bytes;
  for (;;) {
    constexpr std::size_t kStep = 65536;
    const std::size_t size = bytes.size();
    bytes.resize(size + kStep);
    const ssize_t got = ::read(file.get(), bytes.data() + size, kStep);
    bytes.resize(size + (got > 0 ? static_cast<std::size_t>(got) : 0));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) {
      failure = describe("cannot read", path, errno);
      return std::nullopt;
    }
    if (got == 0) return bytes;
  }
}

}  // namespace velorin
