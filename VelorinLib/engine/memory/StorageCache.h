// The image that was read last, so that the same track opened again is not read again.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "engine/memory/MemoryStorage.h"
#include "foundation/Mutex.h"
#include "platform/memory/MemoryPressure.h"

namespace velorin {

/// Keeps the last track's image alive, and finds images of others as long as a decoder reads them.
/// Lets go of what it keeps when the system is short of memory; images in use stay with their
/// users. Any thread but the render thread. No lock is held while a file is asked or read, so that
/// two threads may read the same file at once; the later one is kept.
class StorageCache {
 public:
  enum class Role {
    track,   ///< replaces what is kept
    beside,  ///< belongs to the track whose image was kept last, as a correction file does
  };

  explicit StorageCache(
      const std::vector<std::string>& pressureSources = MemoryPressure::systemSources());
  StorageCache(const StorageCache&) = delete;
  StorageCache& operator=(const StorageCache&) = delete;

  /// The process's own, made on first use. Never destroyed: a thread that hangs in a dead file may
  /// come back to it at any time.
  static StorageCache& shared();

  /// The image of the path; null when there is none, or when the file is no longer what was read.
  /// Where the file does not answer with an error, because its volume is gone, the image serves.
  std::shared_ptr<const MemoryStorage> find(const std::string& path) const EXCLUDES(_lock);

  void keep(std::shared_ptr<const MemoryStorage> storage, Role role) EXCLUDES(_lock);

  /// What the system's shortage of memory does: keeps nothing and finds nothing any more.
  void dropAll() EXCLUDES(_lock);

 private:
  mutable Mutex _lock;
  /// The track, and what belongs to it.
  std::vector<std::shared_ptr<const MemoryStorage>> _kept GUARDED_BY(_lock);
  std::vector<std::weak_ptr<const MemoryStorage>> _inUse GUARDED_BY(_lock);

  std::unique_ptr<MemoryPressure> _memoryPressureSource;  // last: its thread uses the rest
};

}  // namespace velorin
