#include "library/scan/ScanPipeline.h"

#include <fmt/format.h>

#include <algorithm>
#include <unordered_set>

#include "foundation/Log.h"
#include "foundation/Preferences.h"
#include "foundation/Text.h"
#include "library/playlists/M3UManager.h"
#include "library/queries/Playlists.h"
#include "library/queries/ProcessedCues.h"
#include "library/queries/TrackListings.h"
#include "library/scan/FileWorkers.h"
#include "library/scan/ScanText.h"
#include "library/scan/StreamingProgress.h"

namespace velorin {
namespace {

constexpr std::size_t kDiscoveryStep = 200;
constexpr std::size_t kStreamingStep = 200;
constexpr std::size_t kPhasedStep = 500;

double percent(std::size_t part, std::size_t whole) {
  return whole == 0 ? 0 : 100.0 * static_cast<double>(part) / static_cast<double>(whole);
}

/// What the walks of a streaming scan do with an audio file. Shared with walks and workers that may
/// be left behind.
struct Stream {
  std::shared_ptr<ScanJobs> jobs;
  std::shared_ptr<ScanReport> report;
  ScanCallbacks callbacks;
  StreamingProgress progress;

  bool take(const WalkedFile& file, const std::function<bool(std::string)>& queue) {
    const std::size_t discovered = progress.addDiscovered();
    report->addDiscovered(1);
    if (discovered % kDiscoveryStep == 0) {
      callbacks.updateStatus(fmt::format("Discovering files… ({} found)", grouped(discovered)));
    }
    // What the library has costs a look-up and no place in the queue.
    if (jobs->state().existingKeys().contains(file.path)) {
      report->addExisting(1);
      progress.addProcessed();
      return true;
    }
    return queue(std::string(file.path));
  }

  void work(const std::string& path) {
    jobs->importFile(path);
    const std::size_t processed = progress.addProcessed();
    if (!progress.isEnumDone()) return;
    const std::size_t total = progress.discovered();
    if (processed % kStreamingStep != 0 && processed != total) return;
    log::line("📊 progress: {}/{} ({:.0f}%)", processed, total, percent(processed, total));
    callbacks.updateProgress(processed, total);
  }
};

/// The same for the files of a phased scan.
struct Phase {
  std::shared_ptr<ScanJobs> jobs;
  std::shared_ptr<ScanReport> report;
  ScanCallbacks callbacks;
  std::size_t total = 0;
  std::atomic<std::size_t> processed{0};
  Stopwatch watch;

  void work(const std::string& path) {
    jobs->importFile(path);
    const std::size_t count = ++processed;
    if (count % kPhasedStep == 0 || count == total) tell(count);
  }

  /// These are in the library already.
  void skip(std::size_t known) {
    if (known == 0) return;
    report->addExisting(known);
    tell(processed += known);
  }

  void tell(std::size_t count) const {
    callbacks.updateProgress(count, total);
    const ScanFigures figures = report->figures();
    log::line(
        "📂 Scan progress: {}/{} scanned, {} new, {} existing, {} failed ({:.1f}s) — 🧠 {} "
        "MB",
        count, total, figures.inserted, figures.existing, figures.failed, watch.seconds(),
        memoryFootprintMB());
  }
};

std::vector<std::string> concatenated(const EnumeratedFolders& found,
                                      std::vector<std::string> FolderEnumResult::*list) {
  std::vector<std::string> all;
  for (const FolderEnumResult& folder : found.folders) {
    all.insert(all.end(), (folder.*list).begin(), (folder.*list).end());
  }
  return all;
}

}  // namespace

ScanPipeline::ScanPipeline(const ScanParts& parts, const ScanSettings& settings,
                           ScanCallbacks callbacks, std::shared_ptr<ScanReport> report)
    : _parts(parts),
      _settings(settings),
      _callbacks(std::move(callbacks)),
      _report(std::move(report)) {}

FolderEnumeration ScanPipeline::enumeration() const {
  return FolderEnumeration(_settings, _callbacks.isCancelled, _callbacks.updateStatus);
}

std::shared_ptr<ScanJobs> ScanPipeline::makeJobs(PathTable existingKeys,
                                                 const std::vector<std::string>& watchedRoots,
                                                 const std::vector<std::string>& vanishedSheets) {
  ScanState::Known known;
  known.vanishedSheets = vanishedSheets;
  known.existingKeys = std::move(existingKeys);
  known.watchedRoots = watchedRoots;
  try {
    known.processedCues = ProcessedCues(_parts.database).fetchProcessedCues();
  } catch (const VelorinDatabaseError& error) {
    // Then sheets are read again, and their tracks are found to be there.
    log::line("⚠️ The list of processed CUE sheets cannot be read: {}", error.message);
  }
  return std::make_shared<ScanJobs>(_parts, _callbacks, _report, std::move(known));
}

std::vector<std::string> ScanPipeline::streamingScan(const std::vector<std::string>& folders,
                                                     PathTable existingKeys,
                                                     const std::vector<std::string>& watchedRoots,
                                                     ScanSettings::Milliseconds stall) {
  const Stopwatch watch;
  const std::vector<std::string> roots = outermostFolders(folders);
  const auto stream = std::make_shared<Stream>();
  stream->jobs = makeJobs(std::move(existingKeys), watchedRoots);
  stream->report = _report;
  stream->callbacks = _callbacks;
  _callbacks.updateStatus("Scanning files…");
  FileWorkers workers(
      "com.velorin.scanner.extract", {.stall = _settings.fileStall},
      [stream](const std::string& path) { stream->work(path); }, workerCallbacks());
  log::line("📂 Streaming scan: {} folder(s), {} workers, {} enum threads", roots.size(),
            FileWorkers::defaultWidth(), FolderEnumeration::concurrency());

  const EnumeratedFolders found =
      enumeration().stream(roots, stall, [stream, queue = workers.adder()](const WalkedFile& file) {
        return stream->take(file, queue);
      });
  const auto cueSheets = concatenated(found, &FolderEnumResult::cueFiles);
  const auto m3uFiles = concatenated(found, &FolderEnumResult::m3uFiles);
  StreamingProgress& progress = stream->progress;
  progress.setEnumDone();
  const std::size_t processed = progress.processed();
  log::line("📊 enumDone: {}/{} already processed ({:.0f}%)", processed, progress.discovered(),
            percent(processed, progress.discovered()));
  log::line(
      "📂 Enumeration done in {:.1f}s — {} already inserted during enum, {}/{} processed — "
      "🧠 "
      "{} MB",
      watch.seconds(), _report->figures().inserted, processed, progress.discovered(),
      memoryFootprintMB());
  std::vector<std::string> complete;
  for (const FolderEnumResult& folder : found.folders) {
    _report->addUnseen(folder.unseen);
    if (folder.isWhole()) complete.push_back(folder.folder);
  }
  _report->addStalled(found.timedOut());

  const bool sheetsRead = importSheets(stream->jobs, cueSheets, "…");
  _callbacks.updateStatus("Processing audio files…");
  const bool filesRead = finish(workers);
  if (!filesRead) stream->jobs->closeFiles();
  if (!filesRead || !sheetsRead) complete.clear();
  stream->jobs->flush();
  removeClaimedFiles(*stream->jobs);
  if (filesRead) importPlaylists(m3uFiles);

  const ScanFigures figures = _report->figures();
  log::line(
      "🔍 Streaming scan complete: {} inserted, {} deleted, {} existing, {} failed in {:.1f}s (DB "
      "total: {})",
      figures.inserted, figures.deleted, figures.existing, figures.failed, watch.seconds(),
      trackCount());
  logErrors(*stream->jobs);
  return complete;
}

bool ScanPipeline::phasedScan(const EachAudioFile& eachAudioFile, std::size_t audioCount,
                              const std::vector<std::string>& cueSheets,
                              const CueChanges& cueChanges, PathTable existingKeys,
                              const std::vector<std::string>& watchedRoots) {
  const auto phase = std::make_shared<Phase>();
  phase->jobs = makeJobs(std::move(existingKeys), watchedRoots, cueChanges.vanished);
  phase->report = _report;
  phase->callbacks = _callbacks;
  bool allRead = importSheets(phase->jobs, cueSheets, "...");
  // Of sheets that were not read nobody knows what they claim.
  if (allRead) removeUnclaimedCueTracks(*phase->jobs, cueChanges);

  // Which files are new is told here, for all of them, so that only those are queued.
  const ScanState& state = phase->jobs->state();
  const bool anyClaimed = !state.cueAudioFiles().empty();
  const auto isClaimed = [&](std::string_view path) {
    return anyClaimed && state.isClaimedByCue(std::string(path));
  };
  std::size_t claimed = 0;
  std::size_t known = 0;
  eachAudioFile([&](std::string_view path) {
    if (isClaimed(path)) {
      ++claimed;
    } else if (state.existingKeys().contains(path)) {
      ++known;
    }
    return true;
  });
  if (claimed > 0) log::line("⏭️ Skipping {} CUE-referenced audio files", claimed);
  phase->total = audioCount - claimed;
  const std::size_t width = FileWorkers::defaultWidth();
  _callbacks.updateStatus(fmt::format("Scanning {} audio files...", phase->total));
  log::line("🔍 Scanning {} audio files ({} threads)…", phase->total, width);
  phase->skip(known);
  {
    FileWorkers workers(
        "com.velorin.scanner.extract", {.threads = width, .stall = _settings.fileStall},
        [phase](const std::string& path) { phase->work(path); }, workerCallbacks());
    const bool anyUnknown = claimed + known < audioCount;
    if (anyUnknown) {
      eachAudioFile([&](std::string_view path) {
        if (state.existingKeys().contains(path) || isClaimed(path)) return true;
        return !_callbacks.isCancelled() && workers.add(std::string(path));
      });
    }
    if (!finish(workers)) {
      phase->jobs->closeFiles();
      allRead = false;
    }
  }
  if (const std::size_t last = phase->jobs->flush(); last > 0) {
    log::line("📂 Inserted final batch of {} tracks ({} total new)", last,
              _report->figures().inserted);
  }
  removeClaimedFiles(*phase->jobs);
  const ScanFigures figures = _report->figures();
  log::line("🔍 Audio phase complete: {} inserted, {} existing, {} failed in {:.2f}s (DB total: {})",
            figures.inserted, figures.existing, figures.failed, phase->watch.seconds(),
            trackCount());
  logErrors(*phase->jobs);
  return allRead;
}

FileWorkers::Callbacks ScanPipeline::workerCallbacks() const {
  return {.waitIfPaused = _callbacks.waitIfPaused,
          .waitsFor = [updateStatus = _callbacks.updateStatus](const std::string& path) {
            updateStatus(fmt::format("Waiting for {}…", text::toValidUTF8(lastComponent(path))));
          }};
}

bool ScanPipeline::finish(FileWorkers& workers) {
  const FileWorkers::Finished finished =
      workers.finish(_callbacks.isCancelled, _settings.cancelGrace);
  if (!finished.leftBehind.empty()) _report->setStalled();
  for (const std::string& path : finished.leftBehind) {
    log::line("⚠️ {} does not answer", lastComponent(path));
    _report->addFailure(path, "it does not answer");
  }
  if (finished.hasStalled) {
    _report->addError("reading was given up, because no file answered in time: scan again");
  }
  return finished.isComplete;
}

bool ScanPipeline::importSheets(const std::shared_ptr<ScanJobs>& jobs,
                                const std::vector<std::string>& sheets, const char* dots) {
  if (sheets.empty()) return true;
  const Stopwatch watch;
  _callbacks.updateStatus(fmt::format("Processing {} CUE sheets{}", sheets.size(), dots));
  log::line("🎵 Processing {} CUE sheets…", sheets.size());
  FileWorkers workers(
      "com.velorin.scanner.cue", {.stall = _settings.fileStall},
      [jobs](const std::string& path) { jobs->importSheet(path); }, workerCallbacks());
  for (const std::string& sheet : sheets) {
    if (!workers.add(sheet)) break;
  }
  const bool allRead = finish(workers) && !_callbacks.isCancelled();
  if (!allRead) jobs->closeSheets();
  jobs->flush();
  log::line("🎵 CUE phase: {} sheets in {:.2f}s", sheets.size(), watch.seconds());
  return allRead;
}

void ScanPipeline::removeUnclaimedCueTracks(ScanJobs& jobs, const CueChanges& changes) {
  ScanState& state = jobs.state();
  std::vector<std::string> unclaimed;
  for (const std::string& path : changes.audio) {
    if (state.isClaimedByCue(path)) continue;
    if (state.mayBeClaimedByUnreadable(path)) {
      state.claimForCue(path);
    } else {
      unclaimed.push_back(path);
    }
  }
  try {
    if (!unclaimed.empty()) {
      const auto count = static_cast<std::size_t>(_parts.removal.deleteCueTracks(unclaimed));
      _parts.removal.cleanupOrphans();
      _report->addDeleted(count);
      log::line("🧹 Removed {} CUE track(s) of {} file(s) that no sheet claims any more", count,
                unclaimed.size());
    }
    if (!changes.vanished.empty()) ProcessedCues(_parts.database).forget(changes.vanished);
  } catch (const VelorinDatabaseError& error) {
    log::line("❌ CUE tracks without a sheet could not be removed: {}", error.message);
    _report->addError(error.message);
  }
}

void ScanPipeline::removeClaimedFiles(ScanJobs& jobs) {
  const std::vector<std::string> claimed = jobs.state().cueAudioFiles();
  if (claimed.empty()) return;
  try {
    const auto count = static_cast<std::size_t>(_parts.removal.deleteStandaloneTracks(claimed));
    if (count == 0) return;
    _parts.removal.cleanupOrphans();
    _report->addDeleted(count);
    const auto wereThere =
        static_cast<std::size_t>(std::ranges::count_if(claimed, [&](const std::string& path) {
          return jobs.state().existingKeys().contains(path);
        }));
    _report->addWithdrawn(count - std::min(count, wereThere));
    _parts.throttle.libraryChanged();
    log::line("🎵 Cleaned up {} CUE-referenced standalone track(s)", count);
  } catch (const VelorinDatabaseError& error) {
    log::line("❌ Files that CUE sheets claim could not be removed: {}", error.message);
    _report->addError(error.message);
  }
}

void ScanPipeline::importPlaylists(const std::vector<std::string>& m3uFiles) {
  const auto isWanted = [this] {
    return _parts.preferences.getBool("autoImportM3U").value_or(true);
  };
  if (m3uFiles.empty() || !isWanted()) return;
  _callbacks.updateStatus(fmt::format("Importing {} playlist(s)…", m3uFiles.size()));
  std::unordered_set<std::string> names;
  try {
    for (const Playlist& each : Playlists(_parts.database).fetchPlaylists()) {
      names.insert(each.name);
    }
  } catch (const VelorinDatabaseError& error) {
    log::line("⚠️ The names of the playlists cannot be read: {}", error.message);
    return;
  }
  std::size_t imported = 0;
  for (const std::string& file : m3uFiles) {
    if (_callbacks.isCancelled() || !isWanted()) break;
    const std::string fileName = lastComponent(file);
    const std::string name = text::toValidUTF8(fileName.substr(0, fileName.rfind('.')));
    if (names.contains(name)) {
      log::line("⏭️ Skipping M3U '{}' — playlist already exists", name);
      continue;
    }
    try {
      names.insert(M3UManager(_parts.database).importPlaylist(file).name);
      ++imported;
    } catch (const VelorinDatabaseError& error) {
      log::line("⚠️ M3U import failed for {}: {}", fileName, error.message);
    }
  }
  if (imported > 0) _parts.throttle.libraryChanged();
}

std::int64_t ScanPipeline::trackCount() const {
  try {
    return TrackListings(_parts.database).countTracks();
  } catch (const VelorinDatabaseError&) {
    return -1;
  }
}

void ScanPipeline::logErrors(const ScanJobs& jobs) const {
  if (jobs.errorCount() > 0) log::line("⚠️ Scan completed with {} error(s)", jobs.errorCount());
}

}  // namespace velorin
