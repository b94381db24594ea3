#include "library/scan/ScanForms.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <iterator>

#include "foundation/Log.h"
#include "foundation/MainThread.h"
#include "library/queries/LibraryInventory.h"
#include "library/queries/MusicFolders.h"
#include "library/queries/PathPrefix.h"
#include "library/queries/ProcessedCues.h"
#include "library/scan/OrphanCheck.h"
#include "library/volumes/FileSystemWatcher.h"

namespace velorin {
namespace {

struct Changes {
  std::vector<std::string> modified;
  std::vector<std::string> removed;
};

Changes sortByExistence(const std::vector<std::string>& paths) {
  Changes changes;
  for (const std::string& path : paths) {
    if (!kindOfFile(path)) continue;
    std::error_code failure;
    const bool isThere = std::filesystem::is_regular_file(path, failure);
    (isThere ? changes.modified : changes.removed).push_back(path);
  }
  return changes;
}

void append(std::vector<std::string>& list, const std::vector<std::string>& more) {
  list.insert(list.end(), more.begin(), more.end());
}

/// The folders, of those that were asked for, which lie in one that was seen to its end.
std::vector<std::string> seenOf(const std::vector<std::string>& asked,
                                const std::vector<std::string>& whole) {
  std::vector<std::string> seen;
  std::ranges::copy_if(asked, std::back_inserter(seen), [&](const std::string& folder) {
    return std::ranges::find(whole, folder) != whole.end() || isReachable(folder + "/x", whole);
  });
  return seen;
}

}  // namespace

ScanForms::ScanForms(const ScanParts& parts, const ScanHooks& hooks, VolumeResolving& volumes,
                     const ScanSettings& settings, ScanCallbacks callbacks,
                     std::shared_ptr<ScanReport> report)
    : _parts(parts),
      _hooks(hooks),
      _volumes(volumes),
      _settings(settings),
      _callbacks(std::move(callbacks)),
      _report(std::move(report)),
      _pipeline(parts, settings, _callbacks, _report) {}

std::vector<std::string> ScanForms::scanFolders(const std::vector<std::string>& folders,
                                                bool mark) {
  const MusicFolders musicFolders(_parts.database);
  if (mark) musicFolders.markFoldersForFullScan(folders);
  const auto roots = musicFolders.getFolders();
  const auto whole =
      _pipeline.streamingScan(folders, loadExistingKeys(), roots, _settings.streamingStall);
  log::line("✅ Scan complete — {:.1f}s total", _watch.seconds());
  finish();
  return seenOf(folders, whole);
}

std::vector<std::string> ScanForms::fullRescan() {
  const MusicFolders musicFolders(_parts.database);
  const auto folders = musicFolders.getFolders();
  if (folders.empty()) {
    log::line("⚠️ No music folders configured");
    return {};
  }
  musicFolders.markFoldersForFullScan(folders);
  ProcessedCues(_parts.database).clearProcessedCues();
  const auto availability = _volumes.availability(folders, /*attemptRemount=*/false);
  _report->addOffline(availability.offline);
  if (availability.available.empty()) {
    _callbacks.updateStatus("All watched folders are offline");
    log::line("⚠️ Full rescan skipped: all folders are offline");
    return {};
  }
  if (!availability.offline.empty()) {
    _callbacks.updateStatus(fmt::format("Some folders are offline ({}); full rescan skipped",
                                        availability.offline.size()));
    log::line("⚠️ Full rescan skipped: unavailable folders: {}", namesOf(availability.offline));
    return {};
  }
  if (_callbacks.isCancelled()) return {};
  _callbacks.updateStatus("Clearing library…");
  log::line("🗑️ Clearing library for full rescan…");
  _parts.removal.clearForRescan();
  if (_hooks.clearArtwork) _hooks.clearArtwork();
  if (_hooks.clearThumbnails) MainThread::instance().post(_hooks.clearThumbnails);
  const auto whole = _pipeline.streamingScan(folders, {}, folders, _settings.streamingStall);
  log::line("✅ Full rescan complete — {:.1f}s total", _watch.seconds());
  finish();
  return seenOf(folders, whole);
}

std::vector<std::string> ScanForms::rescan() {
  const MusicFolders musicFolders(_parts.database);
  const auto folders = musicFolders.getFolders();
  try {
    if (!folders.empty()) musicFolders.markFoldersForFullScan(folders);
  } catch (const VelorinDatabaseError& error) {
    log::line("❌ Folders could not be marked: {}", error.message);
  }
  const auto [available, offline, silent] =
      _volumes.availability(folders, /*attemptRemount=*/false);
  if (!silent.empty()) _report->setStalled();
  if (!offline.empty()) {
    _report->addOffline(offline);
    _callbacks.updateStatus(fmt::format("Waiting for {} offline folder(s)…", offline.size()));
    log::line("⚠️ Offline folders skipped during rescan: {}", namesOf(offline));
  }
  std::vector<std::string> local;
  std::vector<std::string> toEnumerate;
  for (const std::string& folder : available) {
    (_volumes.isLocalVolume(folder) ? local : toEnumerate).push_back(folder);
  }
  log::line("🔄 Incremental: {} local, {} network folder(s)", local.size(), toEnumerate.size());

  Changes journal;
  if (!local.empty()) {
    _callbacks.updateStatus("Replaying file system journal…");
    const auto replay = FileSystemWatcher::replay(local, _settings.journalReplay);
    if (replay.ran && !replay.needsFullScan) {
      log::line("👁️ Journal handled {} local folder(s)", local.size());
      journal = sortByExistence(replay.paths);
    } else {
      log::line("👁️ Journal not usable for local folders, falling back to enumeration");
      append(toEnumerate, local);
    }
  }
  if (!journal.removed.empty() || !journal.modified.empty()) {
    log::line("👁️ Journal: deleting {} removed + {} modified from DB", journal.removed.size(),
              journal.modified.size());
    std::vector<std::string> paths = journal.removed;
    append(paths, journal.modified);
    try {
      _report->addDeleted(static_cast<std::size_t>(_parts.removal.deleteTracks(paths)));
      _parts.removal.cleanupOrphans();
    } catch (const VelorinDatabaseError& error) {
      _report->addError(error.message);
    }
  }

  EnumeratedFolders found;
  if (!toEnumerate.empty()) {
    found = _pipeline.enumeration().enumerateFolders(outermostFolders(toEnumerate),
                                                     _settings.rescanStall);
  }
  if (_callbacks.isCancelled()) return {};
  noteWhatWentAway(toEnumerate, found);
  std::vector<std::string> whole;
  std::vector<std::string> cueSheets;
  std::vector<std::string> m3uFiles;
  for (const FolderEnumResult& folder : found.folders) {
    _report->addUnseen(folder.unseen);
    if (folder.isWhole()) whole.push_back(folder.folder);
    append(cueSheets, folder.cueFiles);
    append(m3uFiles, folder.m3uFiles);
  }
  _report->addStalled(found.timedOut());
  CheckedLibrary library = OrphanCheck(_parts, _callbacks, *_report).checkForChanges(found);

  std::vector<std::string> modifiedAudio;
  for (const std::string& path : journal.modified) {
    const auto kind = kindOfFile(path);
    (kind == FileKind::cueSheet   ? cueSheets
     : kind == FileKind::playlist ? m3uFiles
                                  : modifiedAudio)
        .push_back(path);
  }
  const std::size_t audioCount = found.audioCount() + modifiedAudio.size();
  _report->addDiscovered(audioCount);
  const bool allRead = _pipeline.phasedScan(
      [&](const ScanPipeline::UsePath& use) {
        for (const FolderEnumResult& folder : found.folders) {
          if (!folder.audioFiles.forEachWhile(use)) return;
        }
        for (const std::string& path : modifiedAudio) {
          if (!use(path)) return;
        }
      },
      audioCount, cueSheets, library.cues, std::move(library.keys), folders);
  if (allRead) {
    _pipeline.importPlaylists(m3uFiles);
  } else {
    whole.clear();
  }
  log::line("✅ Rescan complete — {:.1f}s total", _watch.seconds());
  finish();
  // What the journal handled was seen to its end as well.
  for (const std::string& folder : local) {
    const bool isJournalled = std::ranges::find(toEnumerate, folder) == toEnumerate.end();
    if (allRead && isJournalled) whole.push_back(folder);
  }
  return seenOf(available, whole);
}

void ScanForms::noteWhatWentAway(const std::vector<std::string>& folders,
                                 EnumeratedFolders& found) const {
  const auto [available, offline, silent] =
      _volumes.availability(folders, /*attemptRemount=*/false);
  if (!silent.empty()) _report->setStalled();
  const auto missing = _volumes.missingInside(folders);
  for (FolderEnumResult& folder : found.folders) {
    const bool isAway = std::ranges::find(offline, folder.folder) != offline.end();
    if (isAway && !folder.timedOut) {
      folder.cancelled = true;
      _report->addOffline({folder.folder});
    }
    for (const std::string& point : missing) {
      if (PathPrefix(folder.folder).contains(point)) folder.unseen.push_back({point, ENODEV});
    }
  }
}

PathTable ScanForms::loadExistingKeys() const {
  _callbacks.updateStatus("Loading existing library…");
  log::line("📦 Loading existing track keys…");
  const Stopwatch watch;
  // A failure ends the scan: without the keys every file would be taken for a new one.
  PathTable keys = LibraryInventory(_parts.database).existingKeys();
  log::line("📦 Loaded {} existing keys in {:.2f}s", keys.size(), watch.seconds());
  return keys;
}

void ScanForms::finish() const {
  // Covers are read from files, which may hang as others did.
  if (_hooks.cacheArtwork && !_report->hasStalled())
    _hooks.cacheArtwork(_callbacks.updateStatus, _callbacks.isCancelled);
  if (_hooks.keepListening) _hooks.keepListening(_callbacks.isCancelled);
}

}  // namespace velorin
