// The engine room of a scan: files become rows.
//
// It walks folders, reads files on a pool of threads, groups what they give into batches and
// inserts them. What is to be scanned, and what is to be deleted, is LibraryScanner's to decide.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "library/scan/FileWorkers.h"
#include "library/scan/FolderEnumeration.h"
#include "library/scan/ScanJobs.h"

namespace velorin {

/// What may have become of the CUE sheets that the library has tracks of.
struct CueChanges {
  std::vector<std::string> vanished;  ///< sheets that were read once and are gone
  /// Audio files with CUE tracks whose sheets, if there still are any, are among those that are
  /// scanned: one that none of them claims becomes a track by itself.
  std::vector<std::string> audio;
};

/// Made for one scan. One thread, which it blocks until the scan is done or cancelled; a cancelled
/// scan keeps what it has read so far. Failures of single files and batches are counted, logged
/// and reported, and stop nothing.
class ScanPipeline {
 public:
  /// All references outlive it.
  ScanPipeline(const ScanParts& parts, const ScanSettings& settings, ScanCallbacks callbacks,
               std::shared_ptr<ScanReport> report);

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
  /// CUE tracks whose sheet is gone, or says something else now, leave the library.
  /// audioCount: how many eachAudioFile will tell. False when the reading of files stalled.
  bool phasedScan(const EachAudioFile& eachAudioFile, std::size_t audioCount,
                  const std::vector<std::string>& cueSheets, const CueChanges& cueChanges,
                  PathTable existingKeys, const std::vector<std::string>& watchedRoots);

  /// Makes playlists of M3U files, unless the preference "autoImportM3U" is false. A file whose
  /// name a playlist has already is left alone.
  void importPlaylists(const std::vector<std::string>& m3uFiles);

  FolderEnumeration enumeration() const;

 private:
  std::shared_ptr<ScanJobs> makeJobs(PathTable existingKeys,
                                     const std::vector<std::string>& watchedRoots,
                                     const std::vector<std::string>& vanishedSheets = {});
  FileWorkers::Callbacks workerCallbacks() const;
  /// False when something was not read; it is told in the report.
  bool finish(FileWorkers& workers);
  bool importSheets(const std::shared_ptr<ScanJobs>& jobs, const std::vector<std::string>& sheets,
                    const char* dots);
  void removeUnclaimedCueTracks(ScanJobs& jobs, const CueChanges& changes);
  void removeClaimedFiles(ScanJobs& jobs);
  std::int64_t trackCount() const;
  void logErrors(const ScanJobs& jobs) const;

  const ScanParts& _parts;
  const ScanSettings& _settings;
  const ScanCallbacks _callbacks;
  const std::shared_ptr<ScanReport> _report;
};

}  // namespace velorin
