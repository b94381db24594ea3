// Files that changed while the program runs.
#pragma once

#include <memory>
#include <string>
#include <unordered_set>
#include <vector>

#include "foundation/Mutex.h"
#include "library/scan/ScanForms.h"

namespace velorin {

/// Gathers the paths that a watcher tells until there was silence for a while. Any thread.
class PendingEvents {
 public:
  /// More than so many paths are looked at by a rescan.
  static constexpr std::size_t kMostHandledSingly = 500;

  /// Returns the number of this addition, for isLatest() when the silence is over.
  std::uint64_t add(const std::vector<std::string>& paths, bool mustScanAll);
  /// True when nothing was added since.
  bool isLatest(std::uint64_t addition) const;
  /// What waits is not looked at in time: its silence never ends.
  void disturb();

  struct Taken {
    std::vector<std::string> paths;
    bool mustScanAll = false;  ///< only a rescan can tell what changed

    bool needsRescan() const noexcept { return mustScanAll || paths.size() > kMostHandledSingly; }
  };
  Taken take();

 private:
  mutable Mutex _lock;
  std::unordered_set<std::string> _pendingEventPaths GUARDED_BY(_lock);
  bool _mustScanAll GUARDED_BY(_lock) = false;
  std::uint64_t _debounceCounter GUARDED_BY(_lock) = 0;
};

/// One round of changes, on the scanner's queue. A file that is as the library knows it is left
/// alone; a file that is new or changed is read, one that is gone leaves the library, unless its
/// music folder is offline.
class FileEvents {
 public:
  /// All references outlive it.
  FileEvents(const ScanParts& parts, const ScanHooks& hooks, VolumeResolving& volumes,
             const ScanSettings& settings, ScanCallbacks callbacks);

  /// False when none of the paths concerned the library. Throws VelorinDatabaseError.
  bool process(const std::vector<std::string>& paths);

 private:
  struct Sorted {
    std::vector<std::string> modified;
    std::vector<std::string> deleted;
  };
  Sorted sort(const std::vector<std::string>& paths, const std::vector<std::string>& roots) const;
  void dropUnchanged(std::vector<std::string>& modified) const;
  /// Those that are on volumes which are there; the others are not even touched.
  std::vector<std::string> withoutOffline(const std::vector<std::string>& paths,
                                          const std::vector<std::string>& roots) const;

  const ScanParts& _parts;
  const ScanHooks& _hooks;
  VolumeResolving& _volumes;
  const ScanSettings& _settings;
  const ScanCallbacks _callbacks;
};

}  // namespace velorin
