#include "library/scan/OrphanCheck.h"

#include <fmt/format.h>

#include <algorithm>

#include "foundation/Log.h"
#include "library/queries/FileStamp.h"
#include "library/queries/LibraryInventory.h"
#include "library/queries/ProcessedCues.h"
#include "library/scan/ScanText.h"

namespace velorin {
CheckedLibrary OrphanCheck::checkForChanges(const EnumeratedFolders& found) const {
  const Stopwatch watch;
  const LibraryInventory inventory(_parts.database);
  _callbacks.updateStatus("Checking for changes…");
  const auto roots =
      static_cast<std::size_t>(std::ranges::count_if(found.folders, &FolderEnumResult::isWhole));
  log::line("🔄 Checking for orphans + size changes… ({} folder(s))", roots);
  PathTable keys = inventory.existingKeys();
  if (keys.empty()) {
    log::line("🔄 Empty library, full scan");
    return {std::move(keys), {}};
  }
  const Listing current(found);
  if (current.size() == 0) {
    const std::string text = fmt::format(
        "Enumeration returned 0 files but DB has {} tracks — skipping orphan deletion (likely "
        "enumeration failure)",
        keys.size());
    log::line("⚠️ {}", text);
    _report.addError(text);
    return {std::move(keys), {}};
  }

  std::size_t orphans = 0;
  std::vector<std::string> orphaned;
  keys.forEach([&](std::string_view path, std::int64_t) {
    if (current.holds(path) || !current.wasLookedFor(path)) return;
    ++orphans;
    // The keys of one file follow each other.
    if (orphaned.empty() || orphaned.back() != path) orphaned.emplace_back(path);
  });
  if (!isPlausible(orphans, keys.size())) {
    const std::string text = fmt::format(
        "{}/{} tracks would be orphaned — skipping deletion (likely enumeration failure)", orphans,
        keys.size());
    log::line("⚠️ {}", text);
    _report.addError(text);
    return {std::move(keys), {}};
  }
  bool anyDeleted = false;
  if (orphans > 0) {
    log::line("🔄 Deleting {} orphaned file(s)", orphaned.size());
    deleteFiles(orphaned);
    anyDeleted = true;
  }

  std::vector<std::string> changed;
  try {
    inventory.existingFileStamps([&](std::string_view path, std::int64_t known) {
      const auto stamp = current.stampOf(path);
      if (stamp && !isSameState(*stamp, known)) changed.emplace_back(path);
    });
  } catch (const VelorinDatabaseError& error) {
    log::line("⚠️ The sizes of the library's files cannot be read: {}", error.message);
    changed.clear();
  }
  std::ranges::sort(changed);
  changed.erase(std::unique(changed.begin(), changed.end()), changed.end());
  if (!changed.empty()) {
    log::line("🔄 {} file(s) changed size — will re-import", changed.size());
    deleteFiles(changed);
    anyDeleted = true;
  }
  log::line("🔄 Incremental: {} current, {} orphaned, {} size-changed in {:.2f}s", current.size(),
            orphans, changed.size(), watch.seconds());
  if (anyDeleted) keys = inventory.existingKeys();
  CueChanges cues = cueChanges(current, keys);
  return {std::move(keys), std::move(cues)};
}

CueChanges OrphanCheck::cueChanges(const Listing& current, const PathTable& keys) const {
  CueChanges changes;
  try {
    for (const auto& [sheet, time] : ProcessedCues(_parts.database).fetchProcessedCues()) {
      if (current.wasLookedFor(sheet) && !current.holds(sheet)) changes.vanished.push_back(sheet);
    }
  } catch (const VelorinDatabaseError& error) {
    log::line("⚠️ The list of processed CUE sheets cannot be read: {}", error.message);
    return {};
  }
  keys.forEachCue([&](std::string_view path) {
    const bool isNew = changes.audio.empty() || changes.audio.back() != path;
    if (isNew && current.wasLookedFor(path) && current.holds(path))
      changes.audio.emplace_back(path);
  });
  return changes;
}

void OrphanCheck::deleteFiles(const std::vector<std::string>& paths) const {
  try {
    _report.addDeleted(static_cast<std::size_t>(_parts.removal.deleteTracks(paths)));
    _parts.removal.cleanupOrphans();
  } catch (const VelorinDatabaseError& error) {
    log::line("❌ Tracks could not be deleted: {}", error.message);
    _report.addError(error.message);
  }
}

}  // namespace velorin
