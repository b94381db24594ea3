// The work on one file and on one CUE sheet, and the way of what they give into the library.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "library/scan/ScanParts.h"
#include "library/scan/ScanState.h"
#include "library/scan/WorkGate.h"

namespace velorin {

/// Lives for one scan, shared with its workers. Any number of threads work on it at a time; each
/// call blocks for the disk and, with a full batch, for the database.
class ScanJobs {
 public:
  /// The parts may go once both kinds of work are closed.
  ScanJobs(const ScanParts& parts, ScanCallbacks callbacks, std::shared_ptr<ScanReport> report,
           ScanState::Known known);

  ScanState& state() noexcept { return _state; }

  /// Reads the file, unless the scan is cancelled or the library has it. A file that cannot be read
  /// is counted, logged and named in the report.
  void importFile(const std::string& path);

  /// Reads the sheet, unless the scan is cancelled, and claims its audio file. A sheet that changed
  /// replaces the tracks that it gave before.
  void importSheet(const std::string& path);

  /// Stores what waits for a full batch. Returns how many tracks that were.
  std::size_t flush();

  /// From now on nothing more of files, or of sheets, is stored: what a worker that was left behind
  /// reads is dropped. Waits for what is being stored.
  void closeFiles() { _files.close(); }
  void closeSheets() { _sheets.close(); }

  /// Batches that could not be stored.
  std::size_t errorCount() const noexcept { return _errorCount; }

 private:
  enum class From { audio, sheet };
  Result<ScannedItem, ExtractFailure> extract(const std::string& path);
  void readSheet(const std::string& path);
  std::size_t insert(const std::vector<ScannedItem>& batch, From from);
  void replaceCueTracks(const std::string& audioPath);

  const ScanParts& _parts;
  const std::shared_ptr<const MetadataExtracting> _extractor;
  const ScanCallbacks _callbacks;
  const std::shared_ptr<ScanReport> _report;
  ScanState _state;
  WorkGate _files;
  WorkGate _sheets;
  std::atomic<std::size_t> _errorCount{0};
};

}  // namespace velorin
