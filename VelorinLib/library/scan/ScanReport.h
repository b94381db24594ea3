// What a scan did: counted while it runs, told when it is over.
#pragma once

#include <atomic>
#include <chrono>
#include <string>
#include <vector>

#include "foundation/Mutex.h"
#include "library/scan/FolderWalk.h"

namespace velorin {

/// A file that could not be imported, and why, in one line without the path.
struct ScanFailure {
  std::string path;
  std::string reason;
};

/// The figures of a scan so far.
struct ScanFigures {
  std::size_t discovered = 0;  ///< audio files seen in the folders
  std::size_t inserted = 0;    ///< tracks new in the library
  std::size_t deleted = 0;     ///< tracks that left it: gone, changed, or claimed by a CUE sheet
  std::size_t withdrawn = 0;   ///< of both: imported as a file and then claimed by a CUE sheet
  std::size_t existing = 0;    ///< files and CUE tracks that it had already
  std::size_t failed = 0;      ///< files and sheets that could not be read
  std::size_t lost = 0;        ///< tracks that could not be stored; the next scan tries again
};

struct ScanSummary {
  ScanFigures figures;
  std::vector<ScanFailure> failures;  ///< of the failed files the first ScanReport::kMostNamed
  std::vector<UnseenFolder> unseen;   ///< the first kMostNamed too
  std::size_t unseenCount = 0;
  std::vector<std::string> stalled;  ///< music folders that did not answer in time
  std::vector<std::string> offline;  ///< music folders that were not there
  std::vector<std::string> errors;   ///< of the database and of the guards against a bad listing
  bool cancelled = false;
  double seconds = 0;
};

/// Any number of threads.
class ScanReport {
 public:
  static constexpr std::size_t kMostNamed = 10'000;

  void addDiscovered(std::size_t count) noexcept { _discovered += count; }
  /// Each returns the count so far.
  std::size_t addInserted(std::size_t count) noexcept { return _inserted += count; }
  std::size_t addDeleted(std::size_t count) noexcept { return _deleted += count; }
  std::size_t addWithdrawn(std::size_t count) noexcept { return _withdrawn += count; }
  std::size_t addExisting(std::size_t count) noexcept { return _existing += count; }

  void addFailure(std::string path, std::string reason);
  void addUnseen(const std::vector<UnseenFolder>& folders);
  void addStalled(const std::vector<std::string>& folders);
  /// Files were left behind that do not answer.
  void setStalled() noexcept { _stalled = true; }
  /// True when something did not answer in time.
  bool hasStalled() const noexcept { return _stalled; }
  void addOffline(const std::vector<std::string>& folders);
  /// Something that the listener should know; `lost` tracks are not in the library for it.
  void addError(std::string text, std::size_t lost = 0);
  void setCancelled() noexcept { _cancelled = true; }

  ScanFigures figures() const noexcept;
  ScanSummary summary() const;

 private:
  std::atomic<std::size_t> _discovered{0};
  std::atomic<std::size_t> _inserted{0};
  std::atomic<std::size_t> _deleted{0};
  std::atomic<std::size_t> _withdrawn{0};
  std::atomic<std::size_t> _existing{0};
  std::atomic<std::size_t> _failed{0};
  std::atomic<std::size_t> _lost{0};
  std::atomic<bool> _cancelled{false};
  std::atomic<bool> _stalled{false};
  const std::chrono::steady_clock::time_point _start = std::chrono::steady_clock::now();

  mutable Mutex _lock;
  ScanSummary _told GUARDED_BY(_lock);  ///< its lists
};

}  // namespace velorin
