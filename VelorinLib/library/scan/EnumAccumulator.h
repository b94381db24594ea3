// What one walk of a folder has found so far, shared by the thread that walks and the one that
// watches it.
#pragma once

#include <atomic>
#include <chrono>
#include <string>
#include <vector>

#include "foundation/Mutex.h"
#include "library/queries/PathTable.h"
#include "library/scan/FolderWalk.h"

namespace velorin {

/// What an enumeration found, in the order of the walk.
struct FolderEnumResult {
  std::string folder;
  std::vector<std::string> cueFiles;
  PathTable audioFiles;  ///< each with its stamp, see FileStamp.h
  std::vector<std::string> m3uFiles;
  std::vector<UnseenFolder> unseen;
  bool timedOut = false;   ///< it stalled: what is missing here may be there all the same
  bool cancelled = false;  ///< the scan was given up meanwhile: the same holds
  double elapsed = 0;      ///< seconds

  /// True when the walk came to its end and the folder itself could be seen.
  bool isWhole() const noexcept;
};

/// Any number of threads.
class EnumAccumulator {
 public:
  using Clock = std::chrono::steady_clock;

  void addAudio(const WalkedFile& file);
  void addCueSheet(std::string path);
  void addPlaylist(std::string path);
  void addUnseen(UnseenFolder folder);

  /// The walk ends at its next step.
  void cancel() noexcept { _cancelled = true; }
  bool isCancelled() const noexcept { return _cancelled; }

  /// The walk got on, now.
  void noteProgress() noexcept;
  /// From `true` to `false` it is us that the walk waits for, which is no stall.
  void setHandingOver(bool handingOver) noexcept;
  /// How long the walk has not got on.
  Clock::duration stalledFor() const noexcept;

  /// What was found, and nothing is found any more.
  FolderEnumResult take();

 private:
  std::atomic<bool> _cancelled{false};
  std::atomic<bool> _handingOver{false};
  std::atomic<Clock::rep> _lastProgressTime{Clock::now().time_since_epoch().count()};

  mutable Mutex _lock;
  bool _taken GUARDED_BY(_lock) = false;
  FolderEnumResult _found GUARDED_BY(_lock);
};

}  // namespace velorin
