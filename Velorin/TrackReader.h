// Reads the tracks of a play list ahead of the player, so that music begins before a long list is
// read to its end.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "PlayList.h"
#include "foundation/SerialQueue.h"

namespace velorin {

class TrackReader {
 public:
  struct Batch {
    std::vector<TrackInfo> tracks;      ///< in the list's order
    std::vector<std::string> problems;  ///< one line for each file that is not there
  };

  explicit TrackReader(std::vector<PlayListEntry> entries) : _entries(std::move(entries)) {}
  /// Waits for the file that is being read; what was read and not delivered is dropped.
  ~TrackReader() { stop(); }
  TrackReader(const TrackReader&) = delete;
  TrackReader& operator=(const TrackReader&) = delete;

  /// Reads on the calling thread until there is a track and the time is over, or the list. Before
  /// start().
  Batch readFor(std::chrono::milliseconds time);
  /// Reads the rest in the background, and delivers it in pieces on the main thread. Main thread,
  /// once.
  void start(std::function<void(Batch)> deliver);
  /// Reads no more. Any thread.
  void stop() noexcept { _isStopped = true; }

  /// Entries that were not delivered so far. Main thread.
  std::size_t unread() const noexcept { return _unread; }

 private:
  void readOn();

  const std::vector<PlayListEntry> _entries;
  std::size_t _next = 0;  ///< the caller's before start(), the queue's after
  std::size_t _unread = _entries.size();
  std::atomic<bool> _isStopped{false};
  std::function<void(Batch)> _deliver;
  std::shared_ptr<int> _alive = std::make_shared<int>();
  SerialQueue _queue{"com.velorin.play.reader"};  ///< last: its tasks use all above
};

}  // namespace velorin
