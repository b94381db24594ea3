// Keeps the library in step with the music folders.
//
// It decides what is looked at, and when: the scans that the listener and the start of the program
// ask for, one at a time, and the changes that the watcher tells. How files are read is told in
// ScanPipeline.h, what may be deleted in OrphanCheck.h.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "foundation/SerialQueue.h"
#include "library/scan/FileEvents.h"
#include "library/scan/ScanControl.h"
#include "library/scan/ScanForms.h"
#include "library/scan/ScanProgressState.h"
#include "library/volumes/FileSystemWatcher.h"
#include "library/volumes/MountObserver.h"

namespace velorin {

/// Main thread, unless a call says otherwise; nothing here blocks it but the end. Scans and changes
/// are worked on on one serial queue, so that one is at work at a time.
class LibraryScanner {
 public:
  struct Parts {
    ScanParts scan;
    ScanHooks hooks;
    VolumeResolving& volumes;
    /// Before a scan, and when a volume was mounted: gives folders that came back elsewhere their
    /// new paths, and notes on which volumes the folders are. Not on the main thread; may block for
    /// a slow volume.
    std::function<void()> followVolumes;
    /// Fills the artwork cache of a library from before there was one, once.
    std::function<void(const ScanHooks::IsCancelled&)> warmUpArtwork;
  };

  /// All that the parts refer to outlives it.
  explicit LibraryScanner(Parts parts, ScanSettings settings = {});
  /// Cancels and waits for what is at work.
  ~LibraryScanner();
  LibraryScanner(const LibraryScanner&) = delete;
  LibraryScanner& operator=(const LibraryScanner&) = delete;

  /// Once, at launch: starts to watch the folders, unless the preference "autoScanEnabled" is
  /// false, and repeats a scan that was cut short.
  void start();
  /// Starts or stops watching; stopping cancels a scan.
  void setAutoScan(bool enabled);
  /// Ends watching and scans for good, as the program does; returns at once.
  void stop();
  /// The list of music folders has changed.
  void foldersDidChange();
  /// A volume was mounted there. With auto-scan on, the music folders on it are scanned, and those
  /// that it is mounted in. The scanner calls it itself while it watches.
  void volumeMounted(const std::string& mountPath);

  /// Scans folders that are new. During a scan they are queued behind it.
  void scan(std::vector<std::string> folders);
  void scanMounted(std::vector<std::string> folders);
  /// Scans all folders for what changed, or from nothing. A running scan is cancelled.
  void rescan();
  void fullRescan();

  void togglePause();
  /// Ends a scan before its time: what was read is kept, and the folders stay marked, so that the
  /// next scan goes on.
  void cancel();

  ScanProgressState& scanState() noexcept { return _scanState; }
  /// Of the running scan, else of the last one.
  ScanFigures figures() const { return _report->figures(); }
  /// Of the last scan, once it is over.
  const ScanSummary& lastSummary() const noexcept { return _lastSummary; }

 private:
  enum class Form { newFolders, mountedFolders, incremental, full };

  void request(Form form, std::vector<std::string> folders);
  void queueOrStart(Form form, std::vector<std::string> folders, const char* what);
  void run(std::uint64_t generation, Form form, const std::vector<std::string>& folders,
           const std::shared_ptr<ScanReport>& report);
  void endScan(std::uint64_t generation, const std::vector<std::string>& scanned,
               const std::shared_ptr<ScanReport>& report);
  void scanEnded(std::uint64_t generation, ScanSummary summary);
  ScanCallbacks callbacks(std::uint64_t generation);

  // On _watchQueue.
  void startWatching(const std::vector<std::string>& folders);
  void watchAnew(const std::vector<std::string>& folders);
  void stopWatching();
  std::vector<std::string> foldersOrNone() const;
  void changed(FileSystemWatcher::Changes changes);
  void processEvents();

  /// Runs the task on the main thread, unless the scanner is gone by then.
  void onMain(std::function<void()> task);

  const Parts _parts;
  const ScanSettings _settings;
  const std::shared_ptr<ScanControl> _control = std::make_shared<ScanControl>();
  PendingEvents _pendingEvents;

  // Main thread.
  ScanProgressState _scanState;
  std::vector<std::string> _pendingFolders;
  std::shared_ptr<ScanReport> _report = std::make_shared<ScanReport>();
  ScanSummary _lastSummary;
  std::shared_ptr<int> _alive = std::make_shared<int>();

  std::unique_ptr<FileSystemWatcher> _watcher;    ///< on _watchQueue
  std::unique_ptr<MountObserver> _mountObserver;  ///< on _watchQueue
  SerialQueue _scanQueue{"com.velorin.scanner"};
  SerialQueue _watchQueue{"com.velorin.scanner.watch"};
};

}  // namespace velorin
