#include "library/scan/ScanJobs.h"

#include <fmt/format.h>

#include "foundation/Log.h"
#include "library/cue/CueImporter.h"
#include "library/queries/LibraryImport.h"
#include "library/queries/LibraryInventory.h"
#include "library/scan/ScanText.h"

namespace velorin {

ScanJobs::ScanJobs(const ScanParts& parts, ScanCallbacks callbacks, LibraryUpdateThrottle& throttle,
                   std::shared_ptr<ScanReport> report, ScanState::Known known)
    : _parts(parts),
      _extractor(parts.extractor),
      _callbacks(std::move(callbacks)),
      _throttle(throttle),
      _report(std::move(report)),
      _state(std::move(known), parts.findArtwork) {}

void ScanJobs::importFile(const std::string& path) {
  if (_callbacks.isCancelled()) return;
  _callbacks.waitIfPaused();
  if (_callbacks.isCancelled()) return;
  if (_state.existingKeys().contains(path)) {
    _report->addExisting(1);
    return;
  }
  auto extracted = extract(path);
  if (_closed) return;
  if (!extracted) {
    log::line("⚠️ Extract failed: {}", lastComponent(path));
    _report->addFailure(path, extracted.error().reason);
    return;
  }
  const auto batch = _state.append(std::move(extracted).value());
  if (batch && insert(*batch, From::audio) > 0) {
    log::line("📂 Inserted batch of {} tracks ({} total new)", batch->size(),
              _report->figures().inserted);
  }
}

Result<ScannedItem, ExtractFailure> ScanJobs::extract(const std::string& path) {
  try {
    return _extractor->extract(path, _state.watchedRoots(), [this](const std::string& folder) {
      return _state.artwork(folder);
    });
  } catch (const std::exception& error) {
    // A file that is too much for the memory there is must not end the scan.
    return ExtractFailure{error.what()};
  }
}

void ScanJobs::importSheet(const std::string& path) {
  if (_callbacks.isCancelled()) return;
  _callbacks.waitIfPaused();
  if (_callbacks.isCancelled()) return;
  try {
    readSheet(path);
  } catch (const std::exception& error) {
    log::line("❌ CUE sheet {}: {}", lastComponent(path), error.what());
    _report->addFailure(path, error.what());
  }
}

void ScanJobs::readSheet(const std::string& path) {
  const CueImporter importer(_parts.database);
  CueImporter::Outcome outcome = importer.processCue(path, _state);
  // The sheet is as it was, but the tracks it gave are gone: with a file that was changed, or in a
  // scan that ended between noting the sheet and storing them.
  if (outcome.audioPath && outcome.items.empty() && _state.wasCueRead(path) &&
      !_state.hadCueTracks(*outcome.audioPath)) {
    _state.forgetCue(path);
    outcome = importer.processCue(path, _state);
  }
  if (_closed) return;
  if (outcome.failure) _report->addFailure(path, *outcome.failure);
  if (!outcome.audioPath) return;
  _state.claimForCue(*outcome.audioPath);
  if (outcome.items.empty() || !_state.takeCueTracksOf(*outcome.audioPath)) return;

  std::vector<ScannedItem>& items = outcome.items;
  if (_state.wasCueRead(path) && _state.hadCueTracks(*outcome.audioPath)) {
    replaceCueTracks(*outcome.audioPath);
  } else {
    const std::size_t found = items.size();
    std::erase_if(items, [&](const ScannedItem& item) {
      return _state.existingKeys().contains(
          libraryKey(item.track.filePath, item.track.cueStartTime));
    });
    _report->addExisting(found - items.size());
  }
  if (const auto batch = _state.append(std::move(items))) insert(*batch, From::sheet);
}

void ScanJobs::replaceCueTracks(const std::string& audioPath) {
  try {
    const auto deleted = _parts.removal.deleteCueTracks({audioPath});
    _report->addDeleted(static_cast<std::size_t>(deleted));
  } catch (const VelorinDatabaseError& error) {
    log::line("❌ CUE tracks of {} could not be replaced: {}", audioPath, error.message);
    _report->addError(error.message);
  }
}

std::size_t ScanJobs::flush() {
  const std::vector<ScannedItem> rest = _state.takeAll();
  return rest.empty() ? 0 : insert(rest, From::audio);
}

std::size_t ScanJobs::insert(const std::vector<ScannedItem>& batch, From from) {
  try {
    LibraryImport(_parts.database).insertBatch(batch);
  } catch (const VelorinDatabaseError& error) {
    const std::size_t number = ++_errorCount;
    log::line("❌ {}insertBatch error #{}: {}", from == From::sheet ? "CUE " : "", number,
              error.message);
    _report->addError(error.message, batch.size());
    return 0;
  }
  _report->addInserted(batch.size());
  _throttle.libraryChanged();
  return batch.size();
}

}  // namespace velorin
