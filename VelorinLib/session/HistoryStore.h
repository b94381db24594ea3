// The player's share of the stored history: plays are written and pages read, in the background.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <vector>

#include "foundation/SerialQueue.h"
#include "records/TrackInfo.h"

namespace velorin {

class DatabaseManager;

/// Main thread; nothing blocks. Failures are logged: what plays does not depend on them. Its
/// destruction waits for what is to be written.
class HistoryStore {
 public:
  /// Without a database nothing is written, and every page is empty.
  explicit HistoryStore(std::shared_ptr<DatabaseManager> database)
      : _database(std::move(database)) {}

  void record(std::int64_t trackId, std::chrono::system_clock::time_point playedAt, double seconds,
              bool skipped);

  /// Counted from the newest row; oldest first inside the page. `done` is called on the store's
  /// thread, with nothing after a failure.
  void read(std::size_t limit, std::size_t offset,
            std::function<void(std::vector<TrackInfo>)> done);
  /// The tracks of these ids as they are now.
  void readTracks(std::vector<std::int64_t> ids, std::function<void(std::vector<TrackInfo>)> done);

  /// Other work behind all that was asked for before.
  void work(std::function<void()> task) { _queue.async(std::move(task)); }

 private:
  const std::shared_ptr<DatabaseManager> _database;
  SerialQueue _queue{"com.velorin.history"};
};

}  // namespace velorin
