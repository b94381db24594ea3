#include "foundation/SerialQueue.h"

#include <atomic>
#include <cassert>
#include <exception>
#include <thread>
#include <utility>

#include "foundation/Mutex.h"
#include "foundation/Realtime.h"
#include "foundation/TaskQueue.h"
#include "foundation/ThreadName.h"

namespace velorin {

struct SerialQueue::Impl {
  explicit Impl(std::string name) : label(std::move(name)) {}

  void add(Task task) EXCLUDES(mutex) {
    assert(!realtime::active());
    MutexLock lock(mutex);
    tasks.push(std::move(task));
    wake();
  }

  void addAt(TaskQueue::Clock::time_point due, Task task) EXCLUDES(mutex) {
    assert(!realtime::active());
    MutexLock lock(mutex);
    tasks.pushAt(due, std::move(task));
    wake();
  }

  /// Starts the thread with the first task, so that a queue nobody uses costs nothing.
  void wake() REQUIRES(mutex) {
    if (!started) thread = std::thread([this] { run(); });
    started = true;
    changed.notifyOne();
  }

  void run() EXCLUDES(mutex) {
    threadID.store(std::this_thread::get_id());
    nameThisThread(label);
    while (const Task task = next()) runLogged(task, label);
  }

  /// Waits for the next task; an empty function ends the thread.
  Task next() EXCLUDES(mutex) {
    TaskQueue::Delayed dropped;  // destroyed after the lock: a capture may use the queue
    MutexLock lock(mutex);
    for (;;) {
      if (!ending) tasks.collectDue(TaskQueue::Clock::now());
      if (tasks.hasReady()) return tasks.pop();
      if (ending) {
        dropped = tasks.takeDelayed();
        return {};
      }
      if (const auto due = tasks.nextDue()) {
        changed.waitUntil(mutex, *due);
      } else {
        changed.wait(mutex);
      }
    }
  }

  const std::string label;
  mutable Mutex mutex;
  ConditionVariable changed;
  TaskQueue tasks GUARDED_BY(mutex);
  bool ending GUARDED_BY(mutex) = false;
  std::atomic<std::thread::id> threadID{};
  bool started GUARDED_BY(mutex) = false;
  std::thread thread GUARDED_BY(mutex);
};

SerialQueue::SerialQueue(std::string label) : _impl(std::make_unique<Impl>(std::move(label))) {}

SerialQueue::~SerialQueue() {
  assert(!isCurrent() && "a queue cannot wait for itself");
  std::thread thread;
  {
    MutexLock lock(_impl->mutex);
    _impl->ending = true;
    _impl->changed.notifyOne();
    thread = std::move(_impl->thread);
  }
  if (thread.joinable()) thread.join();
}

const std::string& SerialQueue::label() const noexcept {
  return _impl->label;
}

void SerialQueue::async(Task task) {
  _impl->add(std::move(task));
}

void SerialQueue::asyncAfter(std::chrono::milliseconds delay, Task task) {
  _impl->addAt(TaskQueue::Clock::now() + delay, std::move(task));
}

void SerialQueue::sync(const Task& task) {
  if (isCurrent()) {
    task();
    return;
  }
  struct Call {
    Mutex mutex;
    ConditionVariable ended;
    bool done GUARDED_BY(mutex) = false;
    std::exception_ptr failure GUARDED_BY(mutex);
  };
  // Shared: the caller may return and leave while the queue is still in notifyOne().
  const auto call = std::make_shared<Call>();
  _impl->add([call, &task] {
    std::exception_ptr failure;
    try {
      task();
    } catch (...) {
      failure = std::current_exception();
    }
    MutexLock lock(call->mutex);
    call->failure = std::move(failure);
    call->done = true;
    call->ended.notifyOne();
  });
  std::exception_ptr failure;
  {
    MutexLock lock(call->mutex);
    while (!call->done) call->ended.wait(call->mutex);
    failure = std::move(call->failure);
  }
  if (failure) std::rethrow_exception(failure);
}

bool SerialQueue::isCurrent() const noexcept {
  return _impl->threadID.load() == std::this_thread::get_id();
}

}  // namespace velorin
