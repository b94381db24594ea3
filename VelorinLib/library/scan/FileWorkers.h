// Threads that work on files, with a bounded number of files on their way.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "library/scan/ScanSettings.h"

namespace velorin {

/// Any number of threads may add. A walk that is faster than the workers waits, so that a large
/// tree takes no memory; the threads are started as they are needed. When no file at all comes to
/// its end for the time of a stall, the workers give up: what hangs is left behind, and what waits
/// is dropped.
class FileWorkers {
 public:
  /// Runs on the workers' threads, many at a time. It owns, or shares, what it uses: a worker that
  /// hangs in the file system may be left behind.
  using Job = std::function<void(const std::string& path)>;

  struct Limits {
    std::size_t threads = defaultWidth();
    std::size_t inFlight = 500;  ///< files that are queued or worked on at most
    ScanSettings::Milliseconds stall{120'000};
  };
  struct Callbacks {
    /// Before each job, on its thread; what it waits for is no stall.
    std::function<void()> waitIfPaused;
    /// A file that has been waited for a while. Must not call the workers.
    std::function<void(const std::string& path)> waitsFor;
  };

  FileWorkers(std::string label, Limits limits, Job job, Callbacks callbacks);
  /// Drops what has not started and waits for what has.
  ~FileWorkers();
  FileWorkers(const FileWorkers&) = delete;
  FileWorkers& operator=(const FileWorkers&) = delete;

  /// Blocks while too many files are on their way. False when the workers take no more.
  bool add(std::string path);

  struct Finished {
    bool isComplete = true;  ///< false when something was left behind or dropped
    bool hasStalled = false;
    std::vector<std::string> leftBehind;  ///< files that hang
  };

  /// Blocks until everything added is done; after that nothing is taken any more. When
  /// `isCancelled` becomes true meanwhile, waits for what is being worked on for the grace only,
  /// and leaves behind what hangs then.
  Finished finish(const std::function<bool()>& isCancelled, ScanSettings::Milliseconds grace);

  /// How adding files goes on where the workers may be gone already: a copy of this may be kept.
  std::function<bool(std::string path)> adder() const;

  /// Workers of a scan: four times as many as processors, at least 8, at most 64.
  static std::size_t defaultWidth();

 private:
  struct State;
  std::shared_ptr<State> _state;
};

}  // namespace velorin
