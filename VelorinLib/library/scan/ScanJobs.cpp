#include "library/scan/ScanJobs.h"

#include <fmt/format.h>

#include "foundation/Log.h"
#include "library/cue/CueImporter.h"
#include "library/queries/LibraryImport.h"
#include "library/scan/ScanText.h"

namespace velorin {

ScanJobs::ScanJobs(const ScanParts& parts, ScanCallbacks callbacks,
                   std::shared_ptr<ScanReport> report, ScanState::Known known)
    : _parts(parts),
      _extractor(parts.extractor),
      _callbacks(std::move(callbacks)),
      _report(std::move(report)),
      _state(std::move(known), parts.findArtwork) {}

void ScanJobs::importFile(const std::string& path) {
  if (_callbacks.isCancelled()) return;
  if (_state.existingKeys().contains(path)) {
    _report->addExisting(1);
    return;
  }
  auto extracted = extract(path);
  const WorkGate::Pass pass(_files);
  if (!pass) return;
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
  try {
    readSheet(path);
  } catch (const std::exception& error) {
    log::line("❌ CUE sheet {}: {}", lastComponent(path), error.what());
    _state.noteUnreadableSheet(path);
    _report->addFailure(path, error.what());
  }
}

void ScanJobs::readSheet(const std::string& path) {
  CueImporter::Outcome outcome = CueImporter::read(path, _state);
  // The sheet is as it was, but the tracks it gave are gone: with a file that was changed, or in a
  // scan that ended between noting the sheet and storing them.
  if (outcome.isUnchanged && !_state.hadCueTracks(*outcome.audioPath)) {
    _state.forgetCue(path);
    outcome = CueImporter::read(path, _state);
  }
  const WorkGate::Pass pass(_sheets);
  if (!pass) return;
  CueImporter(_parts.database).note(path, outcome);
  if (outcome.failure) _report->addFailure(path, *outcome.failure);
  if (outcome.isUnreadable) _state.noteUnreadableSheet(path);
  std::vector<ScannedItem>& items = outcome.items;
  // A sheet that yields nothing leaves its file to be a track by itself.
  if (!outcome.audioPath || (items.empty() && !outcome.isUnchanged)) return;
  const std::string& audioPath = *outcome.audioPath;
  _state.claimForCue(audioPath);
  if (items.empty() || !_state.takeCueTracksOf(audioPath)) return;

  if (_state.replacesCueTracks(path, audioPath)) {
    replaceCueTracks(audioPath);
  } else if (_state.hadCueTracks(audioPath)) {
    // Another sheet's, or this one's of a scan whose notes were lost.
    _report->addExisting(items.size());
    return;
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
  _parts.throttle.libraryChanged();
  return batch.size();
}

}  // namespace velorin
