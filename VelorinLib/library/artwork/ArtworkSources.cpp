#include "library/artwork/ArtworkSources.h"

#include <sys/stat.h>

#include <cstring>
#include <span>

#include "foundation/AtomicFile.h"
#include "foundation/Log.h"
#include "platform/files/RegularFile.h"

namespace velorin {
namespace {

constexpr std::size_t kMostBytes = 64'000'000;
constexpr std::string_view kMark = "artwork sources, form 1\n";

/// One album in the file, which is the mark, the records and the hash of both. In the order of
/// this machine's bytes: caches do not travel.
struct Record {
  std::int64_t albumId;
  std::uint64_t stamp;
  std::uint64_t hasPicture;
};

/// FNV-1a of 64 bits, taken up where an earlier one ended.
std::uint64_t hash(std::string_view bytes, std::uint64_t state = 14'695'981'039'346'656'037U) {
  for (const char byte : bytes) {
    state = (state ^ static_cast<unsigned char>(byte)) * 1'099'511'628'211U;
  }
  return state;
}

template <class Value>
std::string_view bytesOf(const Value& value) {
  return {reinterpret_cast<const char*>(&value), sizeof value};
}

template <class Value>
Value valueAt(std::string_view bytes, std::size_t position) {
  Value value;
  std::memcpy(&value, bytes.data() + position, sizeof value);
  return value;
}

std::int64_t nanoseconds(const timespec& moment) {
  return static_cast<std::int64_t>(moment.tv_sec) * 1'000'000'000 + moment.tv_nsec;
}

}  // namespace

std::optional<std::uint64_t> sourceStamp(const std::string& path, std::int64_t* modified) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  if (modified) *modified = nanoseconds(status.st_mtim);
  // The last of them tells of a copy that kept its time, and of a file that may be read now.
  const std::int64_t state[]{status.st_size, nanoseconds(status.st_mtim),
                             nanoseconds(status.st_ctim)};
  return hash(bytesOf(state), hash(path));
}

ArtworkSources readArtworkSources(const std::string& path) {
  ArtworkSources sources;
  const auto file = RegularFile::open(path);
  if (!file || file.value().size() > kMostBytes) return sources;
  std::string bytes(file.value().size(), '\0');
  bytes.resize(file.value().read(0, std::as_writable_bytes(std::span(bytes))));
  constexpr std::size_t kFrame = kMark.size() + sizeof(std::uint64_t);
  if (bytes.size() < kFrame || (bytes.size() - kFrame) % sizeof(Record) != 0) return sources;
  const std::string_view content(bytes.data(), bytes.size() - sizeof(std::uint64_t));
  if (!content.starts_with(kMark) ||
      valueAt<std::uint64_t>(bytes, content.size()) != hash(content)) {
    return sources;
  }
  sources.reserve((content.size() - kMark.size()) / sizeof(Record));
  for (std::size_t at = kMark.size(); at < content.size(); at += sizeof(Record)) {
    const auto record = valueAt<Record>(content, at);
    sources[record.albumId] = {record.stamp, record.hasPicture != 0};
  }
  return sources;
}

void writeArtworkSources(const std::string& path, const ArtworkSources& sources) {
  std::string bytes(kMark);
  bytes.reserve(kMark.size() + sources.size() * sizeof(Record) + sizeof(std::uint64_t));
  for (const auto& [albumId, source] : sources) {
    bytes += bytesOf(Record{albumId, source.stamp, source.hasPicture ? 1U : 0U});
  }
  bytes += bytesOf(hash(bytes));
  if (bytes.size() > kMostBytes) return;
  if (const auto failure = replaceFile(path, bytes)) log::line("⚠️ {}", *failure);
}

}  // namespace velorin
