#include "library/scan/FileWorkers.h"

#include <algorithm>
#include <deque>
#include <exception>
#include <optional>
#include <system_error>
#include <thread>
#include <vector>

#include "foundation/Log.h"
#include "foundation/Mutex.h"
#include "foundation/ThreadName.h"

namespace velorin {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kRound{100};
/// After so long without progress the listener is told what is being waited for.
constexpr std::chrono::seconds kNotable{5};

}  // namespace

/// Shared with the threads, so that one that is left behind finds it when it comes back.
struct FileWorkers::State : std::enable_shared_from_this<State> {
  State(std::string theLabel, Limits theLimits, Job theJob, Callbacks theCallbacks)
      : label(std::move(theLabel)),
        limits(theLimits),
        job(std::move(theJob)),
        callbacks(std::move(theCallbacks)) {}

  bool add(std::string path) EXCLUDES(mutex) {
    const MutexLock lock(mutex);
    while (!closed && waiting.size() + working >= limits.inFlight) {
      roomMade.waitUntil(mutex, Clock::now() + kRound);
      lookAfter();
    }
    if (closed) return false;
    waiting.push_back(std::move(path));
    if (idle > 0) {
      workAdded.notifyOne();
    } else if (threads.size() < limits.threads) {
      startThread();
    }
    return true;
  }

  void startThread() REQUIRES(mutex) {
    try {
      threads.emplace_back([self = shared_from_this()] { self->work(); });
    } catch (const std::system_error&) {
      // Those that run will do; without any there is nobody to do the work.
      if (!threads.empty()) return;
      waiting.pop_back();
      throw;
    }
  }

  void work() EXCLUDES(mutex) {
    nameThisThread(label);
    mutex.lock();
    while (!closed) {
      if (waiting.empty()) {
        ++idle;
        workAdded.wait(mutex);
        --idle;
        continue;
      }
      const std::string path = std::move(waiting.front());
      waiting.pop_front();
      ++working;
      if (callbacks.waitIfPaused) {
        mutex.unlock();
        callbacks.waitIfPaused();
        mutex.lock();
      }
      current.push_back(&path);
      lastProgress = Clock::now();
      mutex.unlock();
      try {
        job(path);
      } catch (const std::exception& error) {
        log::line("❌ {}: {}: {}", label, path, error.what());
      }
      mutex.lock();
      std::erase(current, &path);
      lastProgress = Clock::now();
      announced = false;
      --working;
      // In one go for many files: waking a thread for each costs more than queueing it.
      if (waiting.size() + working == limits.inFlight / 2) roomMade.notifyAll();
      if (waiting.empty() && working == 0) allDone.notifyAll();
    }
    mutex.unlock();
  }

  /// Is there anything that hangs?
  void lookAfter() REQUIRES(mutex) {
    if (closed || current.empty()) return;
    const auto quiet = Clock::now() - lastProgress;
    if (quiet > limits.stall) {
      stalled = true;
      close();
    } else if (quiet > kNotable && !announced) {
      announced = true;
      if (callbacks.waitsFor) callbacks.waitsFor(*current.front());
    }
  }

  void close() REQUIRES(mutex) {
    closed = true;
    dropped = dropped || !waiting.empty();
    waiting.clear();
    roomMade.notifyAll();
    workAdded.notifyAll();
  }

  const std::string label;
  const Limits limits;
  const Job job;
  const Callbacks callbacks;

  Mutex mutex;
  ConditionVariable workAdded;
  ConditionVariable roomMade;
  ConditionVariable allDone;
  std::deque<std::string> waiting GUARDED_BY(mutex);
  std::size_t working GUARDED_BY(mutex) = 0;
  std::size_t idle GUARDED_BY(mutex) = 0;
  bool closed GUARDED_BY(mutex) = false;
  bool dropped GUARDED_BY(mutex) = false;
  bool stalled GUARDED_BY(mutex) = false;
  bool announced GUARDED_BY(mutex) = false;
  std::vector<const std::string*> current GUARDED_BY(mutex);  ///< what is read now, oldest first
  Clock::time_point lastProgress GUARDED_BY(mutex);
  std::vector<std::thread> threads GUARDED_BY(mutex);
};

FileWorkers::FileWorkers(std::string label, Limits limits, Job job, Callbacks callbacks)
    : _state(std::make_shared<State>(std::move(label), limits, std::move(job),
                                     std::move(callbacks))) {}

FileWorkers::~FileWorkers() {
  std::vector<std::thread> threads;
  {
    const MutexLock lock(_state->mutex);
    _state->close();
    threads.swap(_state->threads);
  }
  for (std::thread& thread : threads) thread.join();
}

bool FileWorkers::add(std::string path) {
  return _state->add(std::move(path));
}

std::function<bool(std::string path)> FileWorkers::adder() const {
  return [state = _state](std::string path) { return state->add(std::move(path)); };
}

FileWorkers::Finished FileWorkers::finish(const std::function<bool()>& isCancelled,
                                          ScanSettings::Milliseconds grace) {
  std::optional<Clock::time_point> last;
  std::vector<std::thread> hanging;
  Finished finished;
  {
    const MutexLock lock(_state->mutex);
    while (!_state->waiting.empty() || _state->working > 0) {
      _state->allDone.waitUntil(_state->mutex, Clock::now() + kRound);
      _state->lookAfter();
      if (_state->stalled) break;
      if (!last && isCancelled()) {
        last = Clock::now() + grace;
        _state->close();
      }
      if (last && Clock::now() > *last) break;
    }
    _state->close();
    if (_state->working > 0) {
      _state->dropped = true;
      hanging.swap(_state->threads);
      for (const std::string* const path : _state->current) finished.leftBehind.push_back(*path);
    }
    finished.isComplete = !_state->dropped;
    finished.hasStalled = _state->stalled;
  }
  for (std::thread& thread : hanging) thread.detach();
  return finished;
}

std::size_t FileWorkers::defaultWidth() {
  return std::clamp<std::size_t>(4 * std::max(1U, std::thread::hardware_concurrency()), 8, 64);
}

}  // namespace velorin
