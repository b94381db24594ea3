// Tells what changes below the music folders while the program runs.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace velorin {

/// Watches folders with everything below them, but for hidden files and folders, and those that a
/// scan passes over. On a network volume only this machine's own changes are seen. A music folder
/// that is removed, moved or unmounted is told, and watched again only after the next start.
///
/// Any thread but the render thread, and never from inside the callback. To stop waits for the
/// watcher's own queue: for the callback, and for one answer of the file system.
class FileSystemWatcher {
 public:
  struct Changes {
    /// Files and folders that were made, written, moved, removed or had their attributes changed.
    /// A folder that appeared or left stands for itself and for each file that was found in it.
    std::vector<std::string> paths;
    /// Changes were lost, or a folder that left held files that are no longer known: only a scan
    /// of all folders can tell what changed.
    bool mustScanSubDirs = false;
  };
  /// Called on the watcher's queue with the changes of the last `latency`, never with none.
  using OnChanges = std::function<void(Changes changes)>;

  static constexpr std::chrono::milliseconds kLatency{2000};

  /// latency: how long changes are gathered before they are told.
  FileSystemWatcher(std::vector<std::string> folders, OnChanges onChanges,
                    std::chrono::milliseconds latency = kLatency);
  /// Stops.
  ~FileSystemWatcher();
  FileSystemWatcher(const FileSystemWatcher&) = delete;
  FileSystemWatcher& operator=(const FileSystemWatcher&) = delete;

  /// Returns at once; thousands of folders take a moment until they are watched, which a log line
  /// tells. What changes in a folder's list of files meanwhile is told as well.
  void start();
  /// When it returns, the callback runs no more.
  void stop();
  /// Watches these folders instead, from the present moment; none: stops.
  void update(std::vector<std::string> folders);

  struct Replay {
    std::vector<std::string> paths;
    bool needsFullScan = true;
    bool ran = false;
  };
  /// What changed since the watcher last ran. Linux keeps no journal of file events: the answer is
  /// always that a full scan is needed.
  static Replay replay(const std::vector<std::string>& folders, std::chrono::milliseconds timeout);

 private:
  struct Impl;
  std::unique_ptr<Impl> _impl;
};

}  // namespace velorin
