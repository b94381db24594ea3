// How the parts of the library reach the database: a reference that may be empty or replaced.
#pragma once

#include <memory>

#include "foundation/Mutex.h"
#include "library/ConnectionQueue.h"

namespace velorin {

/// Holds the connection queue under a lock of its own, which is held only while the reference is
/// copied. Any thread but the render thread.
class DatabaseHandle {
 public:
  DatabaseHandle() = default;
  explicit DatabaseHandle(std::shared_ptr<ConnectionQueue> queue) : _dbQueue(std::move(queue)) {}
  DatabaseHandle(const DatabaseHandle&) = delete;
  DatabaseHandle& operator=(const DatabaseHandle&) = delete;

  /// Empty while there is no database.
  std::shared_ptr<ConnectionQueue> dbQueue() const {
    const MutexLock lock(_dbQueueLock);
    return _dbQueue;
  }
  void setDbQueue(std::shared_ptr<ConnectionQueue> queue) {
    const MutexLock lock(_dbQueueLock);
    _dbQueue.swap(queue);
  }

  /// Runs closure(Reader&) on the queue; without a database returns the empty value of what the
  /// closure returns. Throws VelorinDatabaseError.
  template <class Closure>
  auto read(Closure&& closure) const {
    using Result = std::invoke_result_t<Closure, sqlite::Reader&>;
    const auto queue = dbQueue();
    if (!queue) return Result();
    return queue->read(std::forward<Closure>(closure));
  }

  /// Runs closure(Writer&) on the queue in a transaction; without a database throws
  /// VelorinDatabaseError with kDatabaseUnavailable.
  template <class Closure>
  auto write(Closure&& closure) const {
    const auto queue = dbQueue();
    if (!queue) throw VelorinDatabaseError(kDatabaseUnavailable);
    return queue->write(std::forward<Closure>(closure));
  }

 private:
  mutable Mutex _dbQueueLock;
  std::shared_ptr<ConnectionQueue> _dbQueue GUARDED_BY(_dbQueueLock);
};

}  // namespace velorin
