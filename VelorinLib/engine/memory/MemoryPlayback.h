// Tracks played from RAM: what the listener wants, and a decoder over a track's image.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "engine/decoders/FillThreadDecoder.h"
#include "engine/memory/StorageCache.h"

namespace velorin {

/// Any thread but the render thread.
class MemoryPlayback {
 public:
  static constexpr int kDefaultLimitMB = 256;

  /// `cache`: the process's own where it is null.
  explicit MemoryPlayback(StorageCache* cache = nullptr) noexcept : _cache(cache) {}

  bool isOn() const noexcept { return _memoryPlayback.load(); }
  void setOn(bool on) noexcept { _memoryPlayback.store(on); }

  /// Largest file in MiB, above 0; what is set below 1 becomes the default.
  int limitMB() const noexcept { return _memoryPlaybackLimitMB.load(); }
  void setLimitMB(std::int64_t mebibytes) noexcept;

  /// Reads the file and, of a hybrid one, its correction file into RAM, and opens them there. Null
  /// when the listener does not want that, or it cannot be done, which the log then tells: the
  /// track is to be played from disk. Blocks for as long as the files do.
  std::unique_ptr<FileDecoder> open(const std::string& path);

  /// The image of a file that is played or cached; whoever holds it keeps it from being read again.
  std::shared_ptr<const MemoryStorage> imageInUse(const std::string& path) const;

 private:
  StorageCache& cache() const { return _cache != nullptr ? *_cache : StorageCache::shared(); }

  StorageCache* const _cache;
  std::atomic<bool> _memoryPlayback{false};
  std::atomic<int> _memoryPlaybackLimitMB{kDefaultLimitMB};
};

}  // namespace velorin
