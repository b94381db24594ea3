// The orders of track listings, kept until the library changes.
#pragma once

#include <atomic>
#include <deque>
#include <memory>

#include "foundation/SerialQueue.h"
#include "library/DatabaseHandle.h"
#include "library/queries/TrackOrder.h"

namespace velorin {

/// Holds the few listings that were asked for last, four bytes a track each. Any thread but the
/// render thread.
class TrackOrderCache {
 public:
  explicit TrackOrderCache(const DatabaseHandle& database) : _database(database) {}
  /// Gives up an order that is being made.
  ~TrackOrderCache();

  /// The listing's order, if it is here and stands for the state that the read sees.
  std::shared_ptr<const TrackIdList> find(const TrackListing& listing, ConnectionQueue& queue,
                                          sqlite::Reader& reader);

  /// Makes the order in the background.
  void prepare(const TrackListing& listing);

  /// Makes the order now, unless it is here already. Not inside a read or write. May come to
  /// nothing when the library keeps changing.
  void prepareNow(const TrackListing& listing);

  /// Returns when all that was to be prepared is done.
  void waitUntilPrepared();

 private:
  struct Entry {
    std::string key;
    LibraryVersion version;
    std::weak_ptr<ConnectionQueue> queue;  ///< a version means something only on its queue
    std::shared_ptr<const TrackIdList> order;
  };

  void make(const TrackListing& listing);
  std::shared_ptr<const TrackIdList> find(const std::string& key, const ConnectionQueue& queue,
                                          const LibraryVersion& version);
  void store(Entry entry);

  const DatabaseHandle& _database;
  Mutex _mutex;
  std::deque<Entry> _entries GUARDED_BY(_mutex);  // the one used last in front
  std::atomic<bool> _stopping = false;
  SerialQueue _queue{"com.velorin.database.orders"};
};

}  // namespace velorin
