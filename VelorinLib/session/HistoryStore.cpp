#include "session/HistoryStore.h"

#include "foundation/Log.h"
#include "library/DatabaseManager.h"

namespace velorin {

void HistoryStore::record(std::int64_t trackId, std::chrono::system_clock::time_point playedAt,
                          double seconds, bool skipped) {
  if (!_database) return;
  _queue.async([this, trackId, playedAt, seconds, skipped] {
    try {
      _database->history().recordPlay(trackId, playedAt, seconds, skipped);
    } catch (const std::exception& error) {
      log::line("⚠️ A play was not counted: {}", error.what());
    }
  });
}

void HistoryStore::read(std::size_t limit, std::size_t offset,
                        std::function<void(std::vector<TrackInfo>)> done) {
  _queue.async([this, limit, offset, done = std::move(done)] {
    std::vector<TrackInfo> page;
    try {
      if (_database) {
        page = _database->history().fetchHistory(static_cast<std::int64_t>(limit),
                                                 static_cast<std::int64_t>(offset));
      }
    } catch (const std::exception& error) {
      log::line("⚠️ The history cannot be read: {}", error.what());
    }
    done(std::move(page));
  });
}

void HistoryStore::readTracks(std::vector<std::int64_t> ids,
                              std::function<void(std::vector<TrackInfo>)> done) {
  _queue.async([this, ids = std::move(ids), done = std::move(done)] {
    std::vector<TrackInfo> tracks;
    try {
      if (_database) tracks = _database->tracks().fetchTracks(ids);
    } catch (const std::exception& error) {
      log::line("⚠️ Tracks cannot be read anew: {}", error.what());
    }
    done(std::move(tracks));
  });
}

}  // namespace velorin
