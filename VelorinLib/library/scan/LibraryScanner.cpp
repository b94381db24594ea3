#include "library/scan/LibraryScanner.h"

#include <fmt/format.h>

#include <algorithm>
#include <cassert>

#include "foundation/Log.h"
#include "foundation/MainThread.h"
#include "foundation/Preferences.h"
#include "library/queries/MusicFolders.h"
#include "library/queries/PathPrefix.h"
#include "library/queries/TrackListings.h"
#include "library/scan/ScanText.h"
#include "records/Events.h"

namespace velorin {

LibraryScanner::LibraryScanner(Parts parts, ScanSettings settings)
    : _parts(std::move(parts)), _settings(std::move(settings)) {}

LibraryScanner::~LibraryScanner() {
  _control->setWatching(false);
  _control->advance();
  _control->cancel();
  _watchQueue.sync([this] { stopWatching(); });
}

// --- Watching ---

void LibraryScanner::start() {
  if (!_parts.scan.preferences.getBool("autoScanEnabled").value_or(true)) return;
  _control->setWatching(true);
  _watchQueue.async([this] {
    const auto folders = foldersOrNone();
    if (folders.empty()) return;
    if (_parts.followVolumes) _parts.followVolumes();
    startWatching(folders);
    log::line("👁️ Scanner daemon: watcher started for {} music folder(s)", folders.size());
    bool isScanNeeded = true;
    try {
      isScanNeeded = TrackListings(_parts.scan.database).countTracks() == 0 ||
                     MusicFolders(_parts.scan.database).hasFolderNeedingFullScan();
    } catch (const VelorinDatabaseError& error) {
      log::line("⚠️ The library cannot be counted: {}", error.message);
    }
    if (isScanNeeded) {
      onMain([this] { rescan(); });
    } else if (_parts.warmUpArtwork) {
      _scanQueue.async(
          [this] { _parts.warmUpArtwork([this] { return !_control->isWatching(); }); });
    }
  });
}

void LibraryScanner::setAutoScan(bool enabled) {
  _control->setWatching(enabled);
  log::line("📂 Scanner: auto-scan {}", enabled ? "enabled" : "disabled");
  if (!enabled) cancel();
  _watchQueue.async([this, enabled] {
    if (!enabled) return stopWatching();
    const auto folders = foldersOrNone();
    if (!folders.empty()) startWatching(folders);
  });
}

void LibraryScanner::stop() {
  _control->setWatching(false);
  cancel();
  _watchQueue.async([this] { stopWatching(); });
}

void LibraryScanner::foldersDidChange() {
  if (!_control->isWatching()) return;
  _watchQueue.async([this] {
    const auto folders = foldersOrNone();
    if (folders.empty()) {
      stopWatching();
    } else if (_watcher) {
      _watcher->update(folders);
    } else {
      startWatching(folders);
    }
  });
}

void LibraryScanner::volumeMounted(const std::string& mountPath) {
  if (!_control->isWatching()) return;
  _watchQueue.async([this, mountPath] {
    const auto before = foldersOrNone();
    if (before.empty()) return;
    if (_parts.followVolumes) _parts.followVolumes();
    const auto folders = foldersOrNone();
    std::vector<std::string> affected;
    std::ranges::copy_if(folders, std::back_inserter(affected), [&](const std::string& folder) {
      return folder == mountPath || PathPrefix(mountPath).contains(folder) ||
             PathPrefix(folder).contains(mountPath);
    });
    if (affected.empty()) return;
    log::line("📂 Volume mounted: {} → scanning {} music folder(s)", lastComponent(mountPath),
              affected.size());
    watchAnew(folders);
    onMain([this, affected = std::move(affected)]() mutable { scanMounted(std::move(affected)); });
  });
}

void LibraryScanner::startWatching(const std::vector<std::string>& folders) {
  watchAnew(folders);
  _mountObserver = std::make_unique<MountObserver>([this](const std::string& mountPoint) {
    onMain([this, mountPoint] { volumeMounted(mountPoint); });
  });
}

void LibraryScanner::watchAnew(const std::vector<std::string>& folders) {
  _watcher.reset();
  _pendingEvents.disturb();
  _watcher = std::make_unique<FileSystemWatcher>(
      folders, [this](FileSystemWatcher::Changes changes) { changed(std::move(changes)); });
  _watcher->start();
}

void LibraryScanner::stopWatching() {
  _mountObserver.reset();
  _watcher.reset();
  // What waits for silence is for a watcher that is no more.
  _pendingEvents.disturb();
}

std::vector<std::string> LibraryScanner::foldersOrNone() const {
  try {
    return MusicFolders(_parts.scan.database).getFolders();
  } catch (const VelorinDatabaseError& error) {
    log::line("⚠️ The music folders cannot be read: {}", error.message);
    return {};
  }
}

// --- Changes ---

void LibraryScanner::changed(FileSystemWatcher::Changes changes) {
  const std::uint64_t addition = _pendingEvents.add(changes.paths, changes.mustScanSubDirs);
  _scanQueue.asyncAfter(_settings.debounce, [this, addition] {
    if (_pendingEvents.isLatest(addition)) processEvents();
  });
}

void LibraryScanner::processEvents() {
  const PendingEvents::Taken taken = _pendingEvents.take();
  if (taken.needsRescan()) {
    log::line("👁️ FSEvent: {} paths, falling back to incremental rescan", taken.paths.size());
    return onMain([this] { rescan(); });
  }
  if (taken.paths.empty()) return;
  ScanCallbacks silent = callbacks(0);
  silent.updateStatus = [](const std::string&) {};
  silent.updateProgress = [](std::size_t, std::size_t) {};
  silent.isCancelled = [control = _control] { return !control->isWatching(); };
  try {
    FileEvents events(_parts.scan, _parts.hooks, _parts.volumes, _settings, std::move(silent));
    if (events.process(taken.paths)) _parts.scan.events.postOnMain(LibraryDidUpdate{});
  } catch (const VelorinDatabaseError& error) {
    log::line("❌ Scan error: {}", error.message);
  }
}

// --- Requests ---

void LibraryScanner::scan(std::vector<std::string> folders) {
  queueOrStart(Form::newFolders, std::move(folders), "folder(s)");
}

void LibraryScanner::scanMounted(std::vector<std::string> folders) {
  queueOrStart(Form::mountedFolders, std::move(folders), "mount folder(s)");
}

void LibraryScanner::rescan() {
  request(Form::incremental, {});
}

void LibraryScanner::fullRescan() {
  request(Form::full, {});
}

void LibraryScanner::queueOrStart(Form form, std::vector<std::string> folders, const char* what) {
  if (!_scanState.isScanning()) return request(form, std::move(folders));
  log::line("📂 Queued {} {} for after current scan", folders.size(), what);
  std::ranges::move(folders, std::back_inserter(_pendingFolders));
}

void LibraryScanner::request(Form form, std::vector<std::string> folders) {
  assert(MainThread::instance().isCurrent());
  if (_scanState.isScanning()) log::line("⚠️ Cancelling previous scan for new scan");
  // What runs sees by its generation that it is over.
  const std::uint64_t generation = _control->advance();
  _control->clearCancel();
  _control->setPaused(false);
  _scanState.setScanning(true);
  _scanState.setPaused(false);
  _scanState.setProgress(0);
  _scanState.setStatusText(form == Form::full ? "Preparing full rescan…" : "Preparing…");
  _report = std::make_shared<ScanReport>();
  _scanQueue.async([this, generation, form, folders = std::move(folders), report = _report] {
    if (_control->isCurrent(generation)) run(generation, form, folders, report);
  });
}

void LibraryScanner::togglePause() {
  const bool paused = !_scanState.isPaused();
  _scanState.setPaused(paused);
  _control->setPaused(paused);
}

void LibraryScanner::cancel() {
  _pendingFolders.clear();
  _control->cancel();
  _scanState.setPaused(false);
}

ScanCallbacks LibraryScanner::callbacks(std::uint64_t generation) {
  const std::weak_ptr<ScanControl> weakControl = _control;
  const auto onMainIfCurrent = [weakControl, generation, alive = std::weak_ptr(_alive)](auto task) {
    MainThread::instance().post([weakControl, generation, alive, task = std::move(task)] {
      const auto control = weakControl.lock();
      if (alive.lock() && control && control->isCurrent(generation)) task();
    });
  };
  ScanProgressState* const state = &_scanState;
  return {
      .updateStatus =
          [onMainIfCurrent, state](const std::string& text) {
            onMainIfCurrent([state, text] { state->setStatusText(text); });
          },
      .updateProgress =
          [onMainIfCurrent, state](std::size_t processed, std::size_t total) {
            onMainIfCurrent([state, processed, total] {
              state->setProgress(
                  total < 1 ? 0 : static_cast<double>(processed) / static_cast<double>(total));
              state->setStatusText(
                  fmt::format("Scanning {} / {} files", grouped(processed), grouped(total)));
            });
          },
      .waitIfPaused =
          [weakControl] {
            if (const auto control = weakControl.lock()) control->waitIfPaused();
          },
      .isCancelled =
          [weakControl, generation] {
            const auto control = weakControl.lock();
            return !control || control->isCancelled() || !control->isCurrent(generation);
          },
  };
}

// --- A scan, on the scan queue ---

void LibraryScanner::run(std::uint64_t generation, Form form,
                         const std::vector<std::string>& folders,
                         const std::shared_ptr<ScanReport>& report) {
  log::line("🧠 Memory at scan start: {} MB", memoryFootprintMB());
  std::vector<std::string> scanned;
  try {
    if (_parts.followVolumes) _parts.followVolumes();
    ScanForms scan(_parts.scan, _parts.hooks, _parts.volumes, _settings, callbacks(generation),
                   report);
    switch (form) {
      case Form::newFolders:
      case Form::mountedFolders:
        scanned = scan.scanFolders(folders, form == Form::newFolders);
        break;
      case Form::incremental:
        scanned = scan.rescan();
        break;
      case Form::full:
        scanned = scan.fullRescan();
        break;
    }
  } catch (const std::exception& error) {
    log::line("❌ Scan error: {}", error.what());
    report->addError(error.what());
  }
  endScan(generation, scanned, report);
  log::line("🧠 Memory at scan end: {} MB", memoryFootprintMB());
}

void LibraryScanner::endScan(std::uint64_t generation, const std::vector<std::string>& scanned,
                             const std::shared_ptr<ScanReport>& report) {
  if (_control->isCancelled() || !_control->isCurrent(generation)) {
    // Its folders stay marked.
    report->setCancelled();
  } else {
    const MusicFolders musicFolders(_parts.scan.database);
    for (const std::string& path : scanned) {
      try {
        musicFolders.updateLastScanned(path);
      } catch (const VelorinDatabaseError& error) {
        log::line("❌ updateLastScanned error for {}: {}", path, error.message);
        report->addError(error.message);
      }
    }
  }
  onMain([this, generation, summary = report->summary()]() mutable {
    scanEnded(generation, std::move(summary));
  });
}

void LibraryScanner::scanEnded(std::uint64_t generation, ScanSummary summary) {
  if (!_control->isCurrent(generation)) return;
  _lastSummary = std::move(summary);
  if (std::vector<std::string> pending = std::exchange(_pendingFolders, {}); !pending.empty()) {
    log::line("📂 Starting queued scan for {} folder(s)", pending.size());
    // The next one begins where this one has ended.
    _scanState.setScanning(false);
    request(Form::newFolders, std::move(pending));
  } else {
    _scanState.setPaused(false);
    _scanState.setScanning(false);
  }
  _parts.scan.events.postOnMain(LibraryDidUpdate{});
}

void LibraryScanner::onMain(std::function<void()> task) {
  MainThread::instance().post([alive = std::weak_ptr(_alive), task = std::move(task)] {
    if (alive.lock()) task();
  });
}

}  // namespace velorin
