#include "foundation/OperationQueue.h"

#include <algorithm>
#include <cassert>
#include <deque>
#include <list>
#include <thread>
#include <utility>
#include <vector>

#include "foundation/Mutex.h"
#include "foundation/Realtime.h"
#include "foundation/TaskQueue.h"
#include "foundation/ThreadName.h"

namespace velorin {

namespace {
// The queue whose operation the calling thread runs: waiting for it there would never end.
thread_local const void* runningQueue = nullptr;
}  // namespace

struct OperationQueue::Impl {
  struct Entry {
    Operation operation;
    bool barrier = false;
  };

  Impl(std::string name, std::size_t operations)
      : label(std::move(name)), width(std::max<std::size_t>(operations, 1)) {}

  void add(Entry entry) EXCLUDES(mutex) {
    assert(!realtime::active());
    MutexLock lock(mutex);
    pending.push_back(std::move(entry));
    startWorkers();
    changed.notifyAll();
  }

  /// Threads come as they are needed and stay; a smaller width leaves some of them waiting.
  void startWorkers() REQUIRES(mutex) {
    const std::size_t useful = std::min(width, running.size() + pending.size());
    while (!suspended && workers.size() < useful) workers.emplace_back([this] { work(); });
  }

  bool mayStart() const REQUIRES(mutex) {
    if (suspended || pending.empty() || barrierRunning || running.size() >= width) return false;
    return !pending.front().barrier || running.empty();
  }

  void work() EXCLUDES(mutex) {
    nameThisThread(label);
    runningQueue = this;
    mutex.lock();
    for (;;) {
      while (!mayStart() && !ending) changed.wait(mutex);
      if (ending) break;
      Entry entry = std::move(pending.front());
      pending.pop_front();
      const auto source = running.emplace(running.end());
      barrierRunning = entry.barrier;
      const std::stop_token token = source->get_token();
      mutex.unlock();

      runLogged([&] { entry.operation(token); }, label);
      entry.operation = nullptr;  // what it captured is gone before it counts as done

      mutex.lock();
      running.erase(source);
      if (entry.barrier) barrierRunning = false;
      changed.notifyAll();
    }
    mutex.unlock();
  }

  void cancelAll() EXCLUDES(mutex) {
    std::deque<Entry> dropped;  // destroyed after the lock
    std::list<std::stop_source> stopped;
    {
      MutexLock lock(mutex);
      dropped.swap(pending);
      stopped = running;
      changed.notifyAll();
    }
    // Outside the lock: stop callbacks run in here.
    for (auto& source : stopped) source.request_stop();
  }

  const std::string label;
  mutable Mutex mutex;
  ConditionVariable changed;
  std::size_t width GUARDED_BY(mutex);
  bool suspended GUARDED_BY(mutex) = false;
  bool barrierRunning GUARDED_BY(mutex) = false;
  bool ending GUARDED_BY(mutex) = false;
  std::deque<Entry> pending GUARDED_BY(mutex);
  std::list<std::stop_source> running GUARDED_BY(mutex);
  std::vector<std::thread> workers GUARDED_BY(mutex);
};

OperationQueue::OperationQueue(std::string label, std::size_t width)
    : _impl(std::make_unique<Impl>(std::move(label), width)) {}

OperationQueue::~OperationQueue() {
  assert(runningQueue != _impl.get() && "a queue cannot wait for itself");
  std::vector<std::thread> workers;
  {
    MutexLock lock(_impl->mutex);
    _impl->ending = true;
    workers.swap(_impl->workers);
  }
  _impl->cancelAll();
  for (auto& worker : workers) worker.join();
}

void OperationQueue::add(Operation operation) {
  _impl->add({std::move(operation), false});
}

void OperationQueue::addBarrier(Operation operation) {
  _impl->add({std::move(operation), true});
}

void OperationQueue::setSuspended(bool suspended) {
  MutexLock lock(_impl->mutex);
  _impl->suspended = suspended;
  _impl->startWorkers();
  _impl->changed.notifyAll();
}

bool OperationQueue::isSuspended() const {
  MutexLock lock(_impl->mutex);
  return _impl->suspended;
}

void OperationQueue::setWidth(std::size_t width) {
  MutexLock lock(_impl->mutex);
  _impl->width = std::max<std::size_t>(width, 1);
  _impl->startWorkers();
  _impl->changed.notifyAll();
}

std::size_t OperationQueue::width() const {
  MutexLock lock(_impl->mutex);
  return _impl->width;
}

void OperationQueue::cancelAll() {
  _impl->cancelAll();
}

std::size_t OperationQueue::count() const {
  MutexLock lock(_impl->mutex);
  return _impl->pending.size() + _impl->running.size();
}

void OperationQueue::waitUntilDone() {
  assert(runningQueue != _impl.get() && "a queue cannot wait for itself");
  MutexLock lock(_impl->mutex);
  while (!_impl->pending.empty() || !_impl->running.empty()) _impl->changed.wait(_impl->mutex);
}

}  // namespace velorin
