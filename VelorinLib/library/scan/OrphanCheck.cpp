#include "library/scan/OrphanCheck.h"

#include <fmt/format.h>

#include <algorithm>
#include <unordered_set>

#include "foundation/Log.h"
#include "library/queries/FileStamp.h"
#include "library/queries/LibraryInventory.h"
#include "library/queries/PathPrefix.h"
#include "library/scan/ScanText.h"

namespace velorin {
namespace {

/// What the enumeration knows of a path.
class Listing {
 public:
  explicit Listing(const EnumeratedFolders& found) : _found(found) {
    for (const FolderEnumResult& folder : found.folders) {
      _cueSheets.insert(folder.cueFiles.begin(), folder.cueFiles.end());
      if (folder.isWhole()) _roots.emplace_back(folder.folder);
      for (const UnseenFolder& unseen : folder.unseen) _unseen.insert(unseen.path);
    }
  }

  std::size_t size() const { return _found.audioCount() + _cueSheets.size(); }

  std::optional<std::int64_t> stampOf(std::string_view path) const {
    for (const FolderEnumResult& folder : _found.folders) {
      if (const auto stamp = folder.audioFiles.find(path)) return stamp;
    }
    return std::nullopt;
  }

  bool holds(std::string_view path) const {
    return stampOf(path) || (!_cueSheets.empty() && _cueSheets.contains(std::string(path)));
  }

  /// True for a file that would have been found if it were there.
  bool wasLookedFor(std::string_view path) const {
    if (std::ranges::none_of(_roots, [&](const PathPrefix& root) { return root.contains(path); })) {
      return false;
    }
    if (_unseen.empty()) return true;
    for (; !path.empty(); path = path.substr(0, path.rfind('/'))) {
      if (_unseen.contains(std::string(path))) return false;
    }
    return true;
  }

 private:
  const EnumeratedFolders& _found;
  std::unordered_set<std::string> _cueSheets;
  std::vector<PathPrefix> _roots;
  std::unordered_set<std::string> _unseen;
};

}  // namespace

PathTable OrphanCheck::checkForChanges(const EnumeratedFolders& found) const {
  const Stopwatch watch;
  const LibraryInventory inventory(_parts.database);
  _callbacks.updateStatus("Checking for changes…");
  const auto roots =
      static_cast<std::size_t>(std::ranges::count_if(found.folders, &FolderEnumResult::isWhole));
  log::line("🔄 Checking for orphans + size changes… ({} folder(s))", roots);
  PathTable keys = inventory.existingKeys();
  if (keys.empty()) {
    log::line("🔄 Empty library, full scan");
    return keys;
  }
  const Listing current(found);
  if (current.size() == 0) {
    const std::string text = fmt::format(
        "Enumeration returned 0 files but DB has {} tracks — skipping orphan deletion (likely "
        "enumeration failure)",
        keys.size());
    log::line("⚠️ {}", text);
    _report.addError(text);
    return keys;
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
    return keys;
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
  return anyDeleted ? inventory.existingKeys() : std::move(keys);
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
