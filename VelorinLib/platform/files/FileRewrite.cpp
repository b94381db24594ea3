#include "platform/files/FileRewrite.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <filesystem>
#include <system_error>

#include "foundation/FileDescriptor.h"
#include "platform/files/FileCopy.h"

namespace velorin {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view kSuffix = ".velorin-tmp";

RewriteError failure(const char* what, int code) {
  return {fmt::format("{}: {}", what, std::generic_category().message(code))};
}

/// The copy beside the file, locked while it lives; removed in the end unless it was kept.
class TemporaryCopy {
 public:
  static Result<std::unique_ptr<TemporaryCopy>, RewriteError> make(const std::string& path) {
    if (auto error = removeLeftOver(path)) return *error;
    const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd < 0) return failure("nothing can be written in the folder of the file", errno);
    std::unique_ptr<TemporaryCopy> copy(new TemporaryCopy(path, fd));
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
      copy->_isOurs = false;  // another run took it for a left-over in this very moment
      return RewriteError{kBusy};
    }
    return copy;
  }
  ~TemporaryCopy() {
    if (_isOurs) ::unlink(_path.c_str());
  }
  TemporaryCopy(const TemporaryCopy&) = delete;
  TemporaryCopy& operator=(const TemporaryCopy&) = delete;

  int descriptor() const { return _descriptor.get(); }
  const std::string& path() const { return _path; }

  /// Puts it in the place of the file. 0, or the error.
  int replace(const std::string& file) {
    if (::rename(_path.c_str(), file.c_str()) != 0) return errno;
    _isOurs = false;
    return 0;
  }

 private:
  static constexpr const char* kBusy = "the file is being changed by another program";

  TemporaryCopy(std::string path, int fd) : _path(std::move(path)), _descriptor(fd) {}

  /// A copy that is locked belongs to a run that lives; any other was left by one that was killed.
  static std::optional<RewriteError> removeLeftOver(const std::string& path) {
    const FileDescriptor old(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    if (!old) return std::nullopt;
    if (::flock(old.get(), LOCK_EX | LOCK_NB) != 0) return RewriteError{kBusy};
    ::unlink(path.c_str());
    return std::nullopt;
  }

  const std::string _path;
  const FileDescriptor _descriptor;
  bool _isOurs = true;
};

bool sameContent(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
         a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

std::optional<RewriteError> refusalOf(const std::string& path, const struct stat& status) {
  if (!S_ISREG(status.st_mode)) return RewriteError{"this is no regular file"};
  constexpr mode_t kAnyoneMayWrite = S_IWUSR | S_IWGRP | S_IWOTH;
  if ((status.st_mode & kAnyoneMayWrite) == 0) return RewriteError{"the file is read-only"};
  if (::faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) != 0) {
    return failure("the file may not be written", errno);
  }
  return std::nullopt;
}

void syncFolder(const fs::path& folder) {
  // Without this a power cut may bring the old entry back, which is still a whole file: file
  // systems that cannot sync a folder are therefore no failure.
  const FileDescriptor handle(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (handle) ::fsync(handle.get());
}

RewrittenFile described(const struct stat& status) {
  using namespace std::chrono;
  const auto since = seconds(status.st_mtim.tv_sec) + nanoseconds(status.st_mtim.tv_nsec);
  return {static_cast<std::uint64_t>(status.st_size),
          system_clock::time_point(duration_cast<system_clock::duration>(since))};
}

}  // namespace

std::string rewriteCopyName(const std::string& fileName) {
  if (fileName.size() + 1 + kSuffix.size() <= NAME_MAX) {
    return fmt::format(".{}{}", fileName, kSuffix);
  }
  // FNV-1a, so that two long names with one beginning have copies of their own.
  std::uint64_t hash = 0xcbf29ce484222325;
  for (const char c : fileName) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3;
  constexpr std::size_t kMark = 1 + 16;
  return fmt::format(".{}.{:016x}{}", fileName.substr(0, NAME_MAX - 1 - kMark - kSuffix.size()),
                     hash, kSuffix);
}

Result<RewrittenFile, RewriteError> rewriteFile(const std::string& path, const FileEdit& edit) {
  std::error_code unreachable;
  const fs::path real = fs::canonical(path, unreachable);
  if (unreachable) return failure("the file cannot be opened", unreachable.value());
  const FileDescriptor original(::open(real.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  if (!original) return failure("the file cannot be opened", errno);
  struct stat before {};
  if (::fstat(original.get(), &before) != 0) return failure("the file cannot be read", errno);
  if (auto refusal = refusalOf(real.native(), before)) return *refusal;

  const fs::path copyPath = real.parent_path() / rewriteCopyName(real.filename().native());
  auto made = TemporaryCopy::make(copyPath.native());
  if (!made) return made.error();
  TemporaryCopy& copy = *made.value();

  if (int code = copyContent(original.get(), copy.descriptor())) {
    return failure("the file cannot be copied beside itself", code);
  }
  if (auto reason = edit(copy.path())) return RewriteError{std::move(*reason)};
  if (int code = copyAttributes(original.get(), copy.descriptor())) {
    return failure("the permissions and attributes of the file cannot be kept", code);
  }
  if (::fsync(copy.descriptor()) != 0) return failure("the file cannot be written", errno);

  struct stat now {};
  if (::lstat(real.c_str(), &now) != 0 || !sameContent(before, now)) {
    return RewriteError{"the file was changed by another program meanwhile"};
  }
  struct stat after {};
  if (::fstat(copy.descriptor(), &after) != 0) return failure("the file cannot be read", errno);
  if (int code = copy.replace(real.native())) {
    return failure("the file cannot be replaced", code);
  }
  syncFolder(real.parent_path());
  return described(after);
}

}  // namespace velorin
