#include "library/scan/FileEvents.h"

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <unordered_map>

#include "foundation/Log.h"
#include "library/queries/FileStamp.h"
#include "library/queries/LibraryInventory.h"
#include "library/queries/MusicFolders.h"
#include "library/queries/PathPrefix.h"

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

/// The sheets in these folders, other than those that are listed. The rows of a sheet's tracks went
/// with those of its file, and only the sheet can bring them back.
std::vector<std::string> sheetsIn(const std::vector<std::string>& folders,
                                  const std::vector<std::string>& listed) {
  std::unordered_set<std::string> visited;
  std::unordered_set<std::string> known(listed.begin(), listed.end());
  std::vector<std::string> sheets;
  for (const std::string& folder : folders) {
    if (!visited.insert(folder).second) continue;
    std::error_code failure;
    for (std::filesystem::directory_iterator entry(folder, failure), end; !failure && entry != end;
         entry.increment(failure)) {
      const std::string& sibling = entry->path().native();
      if (kindOfFile(sibling) == FileKind::cueSheet && isReachable(sibling, {folder}) &&
          known.insert(sibling).second) {
        sheets.push_back(sibling);
      }
    }
  }
  return sheets;
}

/// The audio files with CUE tracks that are there, in these folders and below.
std::vector<std::string> cueAudioBelow(const std::vector<std::string>& folders,
                                       const PathTable& keys) {
  std::vector<std::string> audio;
  if (folders.empty()) return audio;
  keys.forEachCue([&](std::string_view path) {
    if (!audio.empty() && audio.back() == path) return;
    const bool isBelow = std::ranges::any_of(
        folders, [&](const std::string& folder) { return PathPrefix(folder).contains(path); });
    if (isBelow && stampOfFile(std::string(path))) audio.emplace_back(path);
  });
  return audio;
}

/// The file's folder and those above it, as far as they are in one of the tops.
void addFoldersUpTo(const std::vector<std::string>& tops, const std::string& path,
                    std::vector<std::string>& folders) {
  for (std::string folder = folderOf(path);; folder = folderOf(folder)) {
    const bool isInside = std::ranges::any_of(tops, [&](const std::string& top) {
      return folder == top || PathPrefix(top).contains(folder);
    });
    if (!isInside) return;
    folders.push_back(folder);
  }
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
                       const ScanSettings& settings, ScanCallbacks callbacks)
    : _parts(parts),
      _hooks(hooks),
      _volumes(volumes),
      _settings(settings),
      _callbacks(std::move(callbacks)) {}

bool FileEvents::process(const std::vector<std::string>& paths) {
  const auto roots = MusicFolders(_parts.database).getFolders();
  Sorted changes = sort(withoutOffline(paths, roots), roots);
  dropUnchanged(changes.modified);
  if (changes.modified.empty() && changes.deleted.empty()) return false;
  log::line("👁️ FSEvent: {} new/modified, {} deleted", changes.modified.size(),
            changes.deleted.size());

  std::vector<std::string> leaving = changes.deleted;
  leaving.insert(leaving.end(), changes.modified.begin(), changes.modified.end());
  _parts.removal.deleteTracks(leaving);
  _parts.removal.cleanupOrphans();

  std::vector<std::string> sheets;
  std::vector<std::string> audio;
  std::vector<std::string> sheetFolders;
  CueChanges cues;
  for (const std::string& path : changes.modified) {
    const auto kind = kindOfFile(path);
    if (kind == FileKind::audio) audio.push_back(path);
    if (kind != FileKind::cueSheet) continue;
    sheets.push_back(path);
    sheetFolders.push_back(folderOf(path));
  }
  for (const std::string& path : changes.deleted) {
    if (kindOfFile(path) != FileKind::cueSheet) continue;
    cues.vanished.push_back(path);
    sheetFolders.push_back(folderOf(path));
  }
  PathTable keys = LibraryInventory(_parts.database).existingKeys();
  cues.audio = cueAudioBelow(sheetFolders, keys);
  std::vector<std::string> foldersWithSheets;
  for (const std::string& path : audio) foldersWithSheets.push_back(folderOf(path));
  for (const std::string& path : cues.audio) addFoldersUpTo(sheetFolders, path, foldersWithSheets);
  const auto siblings = sheetsIn(foldersWithSheets, sheets);
  if (!siblings.empty()) {
    log::line(
        "👁️ FSEvent: found {} sibling CUE file(s) for modified audio — including in scan",
        siblings.size());
    sheets.insert(sheets.end(), siblings.begin(), siblings.end());
  }
  // Those that no sheet claims any more are read as files.
  audio.insert(audio.end(), cues.audio.begin(), cues.audio.end());

  ScanPipeline pipeline(_parts, _settings, _callbacks, std::make_shared<ScanReport>());
  pipeline.phasedScan(
      [&](const ScanPipeline::UsePath& use) {
        for (const std::string& path : audio) {
          if (!use(path)) return;
        }
      },
      audio.size(), sheets, cues, std::move(keys), roots);
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

std::vector<std::string> FileEvents::withoutOffline(const std::vector<std::string>& paths,
                                                    const std::vector<std::string>& roots) const {
  std::vector<std::string> concerned;
  std::ranges::copy_if(roots, std::back_inserter(concerned), [&](const std::string& root) {
    return std::ranges::any_of(
        paths, [&](const std::string& path) { return PathPrefix(root).contains(path); });
  });
  auto away = _volumes.availability(concerned, /*attemptRemount=*/false).offline;
  const auto missing = _volumes.missingInside(concerned);
  away.insert(away.end(), missing.begin(), missing.end());
  std::vector<std::string> there;
  std::ranges::copy_if(paths, std::back_inserter(there), [&](const std::string& path) {
    return std::ranges::none_of(
        away, [&](const std::string& folder) { return PathPrefix(folder).contains(path); });
  });
  return there;
}

}  // namespace velorin
