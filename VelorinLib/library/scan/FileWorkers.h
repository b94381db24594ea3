// Threads that work on files, with a bounded number of files on their way.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "library/scan/ScanSettings.h"

namespace velorin {

/// Any number of threads may add. A walk that is faster than the workers waits, so that a large
/// tree takes no memory; the threads are started as they are needed.
class FileWorkers {
 public:
  /// Runs on the workers' threads, many at a time. It owns, or shares, what it uses: a worker that
  /// hangs in the file system may be left behind.
  using Job = std::function<void(const std::string& path)>;

  /// inFlight: files that are queued or worked on at most.
  FileWorkers(std::string label, std::size_t threads, std::size_t inFlight, Job job);
  /// Drops what has not started and waits for what has.
  ~FileWorkers();
  FileWorkers(const FileWorkers&) = delete;
  FileWorkers& operator=(const FileWorkers&) = delete;

  /// Blocks while too many files are on their way. False when the workers take no more.
  bool add(std::string path);

  /// Blocks until everything added is done; after that nothing is taken any more. When
  /// `isCancelled` becomes true meanwhile, waits for what is being worked on for the grace only,
  /// and leaves behind what hangs then. False when something was left behind or dropped.
  bool finish(const std::function<bool()>& isCancelled, ScanSettings::Milliseconds grace);

  /// How adding files goes on where the workers may be gone already: a copy of this may be kept.
  std::function<bool(std::string path)> adder() const;

  /// Workers of a scan: four times as many as processors, at least 8, at most 64.
  static std::size_t defaultWidth();

 private:
  struct State;
  std::shared_ptr<State> _state;
};

}  // namespace velorin
