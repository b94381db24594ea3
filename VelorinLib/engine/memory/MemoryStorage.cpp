#include "engine/memory/MemoryStorage.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "foundation/FileDescriptor.h"
#include "foundation/Log.h"

namespace velorin {
namespace {

/// Read at a time: what the system's cache holds of the file stays below this.
constexpr std::size_t kChunk = std::size_t{8} << 20;

double mebibytes(std::int64_t bytes) noexcept {
  return static_cast<double>(bytes) / (1 << 20);
}

FileIdentity identityOf(const struct stat& status) noexcept {
  return {.device = status.st_dev,
          .inode = status.st_ino,
          .size = status.st_size,
          .modified = std::int64_t{status.st_mtim.tv_sec} * 1'000'000'000 + status.st_mtim.tv_nsec};
}

/// Bytes that can be had without taking them from other programs; the largest number when the
/// system does not tell.
std::int64_t memoryAvailable() noexcept {
  std::int64_t kibibytes = -1;
  if (std::FILE* const info = std::fopen("/proc/meminfo", "re")) {
    char line[128];
    while (kibibytes < 0 && std::fgets(line, sizeof line, info) != nullptr) {
      long long value = 0;
      if (std::sscanf(line, "MemAvailable: %lld kB", &value) == 1) kibibytes = value;
    }
    std::fclose(info);
  }
  return kibibytes < 0 ? INT64_MAX : kibibytes * 1024;
}

/// Linux grants memory that it does not have and ends some program when it is used: an image must
/// leave an eighth of what is available.
void* allocate(std::int64_t size) noexcept {
  const std::int64_t available = memoryAvailable();
  if (size > available - available / 8) return nullptr;
  return std::malloc(static_cast<std::size_t>(size));
}

/// Fills the buffer from the file; false, with a line in the log, when it ends before.
bool readWhole(int file, std::byte* buffer, std::size_t size) {
  std::size_t filled = 0;
  while (filled < size) {
    const ssize_t got = ::read(file, buffer + filled, std::min(kChunk, size - filled));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) {
      log::line("⚠️ Memory playback: read error at offset {}, errno {}", filled,
                got < 0 ? errno : 0);
      return false;
    }
    // Held twice, the file would push others out of the cache for nothing.
    ::posix_fadvise(file, static_cast<off_t>(filled), got, POSIX_FADV_DONTNEED);
    filled += static_cast<std::size_t>(got);
  }
  return true;
}

}  // namespace

std::optional<FileIdentity> FileIdentity::of(const std::string& path) noexcept {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return std::nullopt;
  return identityOf(status);
}

void MemoryStorage::Free::operator()(void* block) const noexcept {
  std::free(block);
}

MemoryStorage::MemoryStorage(std::string path, FileIdentity identity, Buffer buffer,
                             std::size_t size) noexcept
    : _filePath(std::move(path)),
      _identity(identity),
      _buffer(std::move(buffer)),
      _fileSize(size) {}

std::shared_ptr<const MemoryStorage> MemoryStorage::load(const std::string& path,
                                                         std::int64_t limit) {
  // O_NONBLOCK: opening a pipe that nobody writes to would otherwise wait for ever.
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat status {};
  if (!file || ::fstat(file.get(), &status) != 0) return nullptr;
  if (!S_ISREG(status.st_mode) || status.st_size < 1) return nullptr;

  const std::int64_t size = status.st_size;
  if (size > limit) {
    log::line(
        "⚠️ Memory playback: file {:.1f} MB exceeds RAM limit {:.0f} MB, playing from disk",
        mebibytes(size), mebibytes(limit));
    return nullptr;
  }
  Buffer buffer(static_cast<std::byte*>(allocate(size)));
  if (buffer == nullptr) {
    log::line("⚠️ Memory playback: malloc failed for {:.1f} MB", mebibytes(size));
    return nullptr;
  }
  ::posix_fadvise(file.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
  if (!readWhole(file.get(), buffer.get(), static_cast<std::size_t>(size))) return nullptr;
  log::line("📦 Loaded file into memory: {} ({:.1f} MB)",
            std::filesystem::path(path).filename().native(), mebibytes(size));
  return std::shared_ptr<const MemoryStorage>(new MemoryStorage(
      path, identityOf(status), std::move(buffer), static_cast<std::size_t>(size)));
}

std::shared_ptr<const MemoryStorage> MemoryStorage::copyOf(std::span<const std::byte> bytes) {
  Buffer buffer(static_cast<std::byte*>(std::malloc(std::max<std::size_t>(bytes.size(), 1))));
  if (buffer == nullptr) throw std::bad_alloc();
  if (!bytes.empty()) std::memcpy(buffer.get(), bytes.data(), bytes.size());
  return std::shared_ptr<const MemoryStorage>(
      new MemoryStorage({}, {}, std::move(buffer), bytes.size()));
}

}  // namespace velorin
