// The figures of the Home page.
#pragma once

#include <optional>

#include "foundation/Mutex.h"
#include "library/DatabaseHandle.h"
#include "records/HomeStats.h"

namespace velorin {

/// Reads the whole library once, and keeps the result until the library has changed.
///
/// Any thread but the render thread; errors are thrown as VelorinDatabaseError.
class HomeStatistics {
 public:
  explicit HomeStatistics(const DatabaseHandle& database) : _database(database) {}

  /// A track without a format counts as "Unknown". Where formats are equally frequent, the order
  /// is that of their names. A track whose file has no date, or a month that does not exist, is
  /// not part of the growth.
  HomeStats fetchHomeStats() const;

 private:
  struct Kept {
    std::weak_ptr<ConnectionQueue> queue;
    LibraryVersion version;
    HomeStats stats;
  };

  std::optional<HomeStats> kept(const std::shared_ptr<ConnectionQueue>& queue,
                                const LibraryVersion& version) const;

  const DatabaseHandle& _database;
  mutable Mutex _keptLock;
  mutable std::optional<Kept> _kept GUARDED_BY(_keptLock);
};

}  // namespace velorin
