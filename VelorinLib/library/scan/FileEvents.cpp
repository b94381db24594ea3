#include "library/scan/FileEvents.h"

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <unordered_map>

#include "foundation/Log.h"
#include "library/queries/FileStamp.h"
#include "library/queries/LibraryInventory.h"
#include "library/queries/MusicFolders.h"

namespace velorin {
namespace {

/// The stamp of a regular file, or nothing where there is none.
std::optional<std::int64_t> stampOfFile(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  return stampOf(status);
}

std::string folderOf(const std::string& path) {
  return path.substr(0, path.rfind('/'));
}

/// The sheets that lie beside these files, other than those that are listed. The rows of a sheet's
/// tracks went with those of its file, and only the sheet can bring them back.
std::vector<std::string> siblingSheets(const std::vector<std::string>& audio,
                                       const std::vector<std::string>& listed) {
  std::unordered_set<std::string> visited;
  std::unordered_set<std::string> known(listed.begin(), listed.end());
  std::vector<std::string> sheets;
  for (const std::string& path : audio) {
    const std::string folder = folderOf(path);
    if (!visited.insert(folder).second) continue;
    std::error_code failure;
    for (std::filesystem::directory_iterator entry(folder, failure), end; !failure && entry != end;
         entry.increment(failure)) {
      const std::string& sibling = entry->path().native();
      if (kindOfFile(sibling) == FileKind::cueSheet && known.insert(sibling).second) {
        sheets.push_back(sibling);
      }
    }
  }
  return sheets;
}

}  // namespace

std::uint64_t PendingEvents::add(const std::vector<std::string>& paths, bool mustScanAll) {
  const MutexLock lock(_lock);
  // What is beyond the limit is never looked at by itself.
  for (const std::string& path : paths) {
    if (_pendingEventPaths.size() > kMostHandledSingly) break;
    _pendingEventPaths.insert(path);
  }
  _mustScanAll = _mustScanAll || mustScanAll;
  return ++_debounceCounter;
}

bool PendingEvents::isLatest(std::uint64_t addition) const {
  const MutexLock lock(_lock);
  return _debounceCounter == addition;
}

void PendingEvents::disturb() {
  const MutexLock lock(_lock);
  ++_debounceCounter;
}

PendingEvents::Taken PendingEvents::take() {
  const MutexLock lock(_lock);
  Taken taken{{_pendingEventPaths.begin(), _pendingEventPaths.end()}, _mustScanAll};
  _pendingEventPaths.clear();
  _mustScanAll = false;
  std::ranges::sort(taken.paths);
  return taken;
}

FileEvents::FileEvents(const ScanParts& parts, const ScanHooks& hooks, VolumeResolving& volumes,
                       const ScanSettings& settings, ScanCallbacks callbacks,
                       LibraryUpdateThrottle& throttle)
    : _parts(parts),
      _hooks(hooks),
      _volumes(volumes),
      _settings(settings),
      _callbacks(std::move(callbacks)),
      _throttle(throttle) {}

bool FileEvents::process(const std::vector<std::string>& paths) {
  const auto roots = MusicFolders(_parts.database).getFolders();
  Sorted changes = sort(paths, roots);
  dropUnchanged(changes.modified);
  dropOffline(changes.deleted, roots);
  if (changes.modified.empty() && changes.deleted.empty()) return false;
  log::line("👁️ FSEvent: {} new/modified, {} deleted", changes.modified.size(),
            changes.deleted.size());

  std::vector<std::string> leaving = changes.deleted;
  leaving.insert(leaving.end(), changes.modified.begin(), changes.modified.end());
  _parts.removal.deleteTracks(leaving);
  _parts.removal.cleanupOrphans();

  std::vector<std::string> sheets;
  std::vector<std::string> audio;
  for (const std::string& path : changes.modified) {
    const auto kind = kindOfFile(path);
    if (kind == FileKind::cueSheet) sheets.push_back(path);
    if (kind == FileKind::audio) audio.push_back(path);
  }
  const auto siblings = siblingSheets(audio, sheets);
  if (!siblings.empty()) {
    log::line(
        "👁️ FSEvent: found {} sibling CUE file(s) for modified audio — including in scan",
        siblings.size());
    sheets.insert(sheets.end(), siblings.begin(), siblings.end());
  }

  ScanPipeline pipeline(_parts, _settings, _callbacks, _throttle, std::make_shared<ScanReport>());
  pipeline.phasedScan(
      [&](const ScanPipeline::UsePath& use) {
        for (const std::string& path : audio) {
          if (!use(path)) return;
        }
      },
      audio.size(), sheets, LibraryInventory(_parts.database).existingKeys(), roots);
  if (_callbacks.isCancelled()) {
    // Rows may be missing whose files are there: the next start looks at everything.
    MusicFolders(_parts.database).markFoldersForFullScan(roots);
  } else if (_hooks.keepListening) {
    _hooks.keepListening(_callbacks.isCancelled);
  }
  return true;
}

FileEvents::Sorted FileEvents::sort(const std::vector<std::string>& paths,
                                    const std::vector<std::string>& roots) const {
  Sorted sorted;
  for (const std::string& path : paths) {
    if (!kindOfFile(path) || !isReachable(path, roots)) continue;
    (stampOfFile(path) ? sorted.modified : sorted.deleted).push_back(path);
  }
  return sorted;
}

void FileEvents::dropUnchanged(std::vector<std::string>& modified) const {
  std::unordered_map<std::string, std::int64_t> known;
  LibraryInventory(_parts.database)
      .existingFileStamps(
          modified, [&](std::string_view path, std::int64_t stamp) { known.emplace(path, stamp); });
  std::erase_if(modified, [&](const std::string& path) {
    const auto entry = known.find(path);
    if (entry == known.end()) return false;
    const auto stamp = stampOfFile(path);
    return stamp && *stamp != 0 && isSameState(*stamp, entry->second);
  });
}

void FileEvents::dropOffline(std::vector<std::string>& deleted,
                             const std::vector<std::string>& roots) const {
  if (deleted.empty()) return;
  const auto offline = _volumes.availability(roots, /*attemptRemount=*/false).offline;
  if (offline.empty()) return;
  std::erase_if(deleted, [&](const std::string& path) { return isReachable(path, offline); });
}

}  // namespace velorin
