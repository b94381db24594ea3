// The engine room of a scan: files become rows.
//
// It walks folders, reads files on a pool of threads, groups what they give into batches and
// inserts them. What is to be scanned, and what is to be deleted, is LibraryScanner's to decide.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "library/scan/FolderEnumeration.h"
#include "library/scan/ScanJobs.h"

namespace velorin {

/// Made for one scan. One thread, which it blocks until the scan is done or cancelled; a cancelled
/// scan keeps what it has read so far. Failures of single files and batches are counted, logged
/// and reported, and stop nothing.
class ScanPipeline {
 public:
  /// Files between enumeration and extraction at most.
  static constexpr std::size_t kMostInFlight = 500;

  /// All references outlive it.
  ScanPipeline(const ScanParts& parts, const ScanSettings& settings, ScanCallbacks callbacks,
               LibraryUpdateThrottle& throttle, std::shared_ptr<ScanReport> report);

  /// Scans whole folders, of which nothing is known yet: reads while it still enumerates. The
  /// library is asked once, at the beginning, which files it has. Returns the folders that were
  /// seen to their end.
  std::vector<std::string> streamingScan(const std::vector<std::string>& folders,
                                         PathTable existingKeys,
                                         const std::vector<std::string>& watchedRoots,
                                         ScanSettings::Milliseconds stall);

  /// Calls use(path) for each audio file of a scan, the same each time, until it returns false.
  using UsePath = std::function<bool(std::string_view path)>;
  using EachAudioFile = std::function<void(const UsePath& use)>;

  /// Scans files that are known: first the CUE sheets, then the audio files that no sheet claims.
  /// audioCount: how many eachAudioFile will tell.
  void phasedScan(const EachAudioFile& eachAudioFile, std::size_t audioCount,
                  const std::vector<std::string>& cueSheets, PathTable existingKeys,
                  const std::vector<std::string>& watchedRoots);

  /// Makes playlists of M3U files, unless the preference "autoImportM3U" is false. A file whose
  /// name a playlist has already is left alone.
  void importPlaylists(const std::vector<std::string>& m3uFiles);

  FolderEnumeration enumeration() const;

 private:
  std::shared_ptr<ScanJobs> makeJobs(PathTable existingKeys,
                                     const std::vector<std::string>& watchedRoots);
  void importSheets(const std::shared_ptr<ScanJobs>& jobs, const std::vector<std::string>& sheets,
                    const char* dots);
  void removeClaimedFiles(ScanJobs& jobs);
  std::int64_t trackCount() const;
  void logErrors(const ScanJobs& jobs) const;

  const ScanParts& _parts;
  const ScanSettings& _settings;
  const ScanCallbacks _callbacks;
  LibraryUpdateThrottle& _throttle;
  const std::shared_ptr<ScanReport> _report;
};

}  // namespace velorin
