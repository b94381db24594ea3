#include "engine/memory/MemoryPlayback.h"

#include <algorithm>
#include <filesystem>
#include <limits>

#include "engine/decoders/DecoderFactory.h"
#include "engine/memory/MemoryFileHandle.h"
#include "foundation/Log.h"
#include "foundation/Text.h"

namespace velorin {
namespace {

constexpr std::int64_t kMebibyte = std::int64_t{1} << 20;

bool isDSD(const std::string& extension) {
  return extension == "dsf" || extension == "dff";
}

std::string_view decoderNameOf(const std::string& extension) {
  if (extension == "flac") return "FLAC";
  if (extension == "ape") return "APE";
  if (extension == "wv") return "WavPack";
  if (extension == "opus") return "Opus";
  return isDSD(extension) ? "DSD" : "ExtAudioFile";
}

}  // namespace

void MemoryPlayback::setLimitMB(std::int64_t mebibytes) noexcept {
  const std::int64_t most = std::numeric_limits<int>::max();
  _memoryPlaybackLimitMB.store(mebibytes < 1 ? kDefaultLimitMB
                                             : static_cast<int>(std::min(mebibytes, most)));
}

std::unique_ptr<FileDecoder> MemoryPlayback::open(const std::string& path) {
  if (!isOn()) return nullptr;
  const std::string extension = text::fileExtension(path);
  const std::int64_t limit = limitMB() * kMebibyte;

  std::unique_ptr<MemoryFileHandle> file = MemoryFileHandle::open(path, limit, cache());
  std::unique_ptr<MemoryFileHandle> companion;
  const std::string beside = DecoderFactory::companionPath(path);
  const bool hasCompanion = file && !beside.empty() && FileIdentity::of(beside).has_value();
  if (hasCompanion) {
    companion = MemoryFileHandle::open(beside, limit, cache(), StorageCache::Role::beside);
  }
  if (!file || (hasCompanion && !companion)) {
    log::line("⚠️ Memory playback: failed to load {}file, falling back to disk",
              isDSD(extension) ? "DSD " : "");
    return nullptr;
  }
  const std::string name = std::filesystem::path(path).filename().native();
  const double size = static_cast<double>(file->size()) / kMebibyte;
  if (isDSD(extension)) {
    log::line("📦 Memory playback: loaded {} ({:.1f} MB) into RAM", name, size);
  } else {
    log::line("📦 Memory playback: {} ({:.1f} MB) ready", name, size);
  }
  auto opened = DecoderFactory::open(std::move(file), extension, std::move(companion));
  if (!opened) return nullptr;  // opened from disk, it fails once more and is reported
  log::line("📦 {} decoder: reading from memory", decoderNameOf(extension));
  return std::move(opened).value();
}

std::shared_ptr<const MemoryStorage> MemoryPlayback::imageInUse(const std::string& path) const {
  return isOn() ? cache().find(path) : nullptr;
}

}  // namespace velorin
