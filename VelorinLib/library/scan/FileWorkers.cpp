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

/// Shared with the threads, so that one that is left behind finds it when it comes back.
struct FileWorkers::State : std::enable_shared_from_this<State> {
  State(std::string theLabel, std::size_t theWidth, std::size_t theInFlight, Job theJob)
      : label(std::move(theLabel)),
        width(theWidth),
        inFlight(theInFlight),
        job(std::move(theJob)) {}

  bool add(std::string path) EXCLUDES(mutex) {
    const MutexLock lock(mutex);
    while (!closed && waiting.size() + working >= inFlight) roomMade.wait(mutex);
    if (closed) return false;
    waiting.push_back(std::move(path));
    if (idle > 0) {
      workAdded.notifyOne();
    } else if (threads.size() < width) {
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
      mutex.unlock();
      try {
        job(path);
      } catch (const std::exception& error) {
        log::line("❌ {}: {}: {}", label, path, error.what());
      }
      mutex.lock();
      --working;
      // In one go for many files: waking a thread for each costs more than queueing it.
      if (waiting.size() + working == inFlight / 2) roomMade.notifyAll();
      if (waiting.empty() && working == 0) allDone.notifyAll();
    }
    mutex.unlock();
  }

  void close() REQUIRES(mutex) {
    closed = true;
    waiting.clear();
    roomMade.notifyAll();
    workAdded.notifyAll();
  }

  const std::string label;
  const std::size_t width;
  const std::size_t inFlight;
  const Job job;

  Mutex mutex;
  ConditionVariable workAdded;
  ConditionVariable roomMade;
  ConditionVariable allDone;
  std::deque<std::string> waiting GUARDED_BY(mutex);
  std::size_t working GUARDED_BY(mutex) = 0;
  std::size_t idle GUARDED_BY(mutex) = 0;
  bool closed GUARDED_BY(mutex) = false;
  std::vector<std::thread> threads GUARDED_BY(mutex);
};

FileWorkers::FileWorkers(std::string label, std::size_t threads, std::size_t inFlight, Job job)
    : _state(std::make_shared<State>(std::move(label), std::max<std::size_t>(threads, 1),
                                     std::max<std::size_t>(inFlight, 1), std::move(job))) {}

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

bool FileWorkers::finish(const std::function<bool()>& isCancelled,
                         ScanSettings::Milliseconds grace) {
  using Clock = std::chrono::steady_clock;
  constexpr std::chrono::milliseconds kRound{100};
  std::optional<Clock::time_point> last;
  std::vector<std::thread> hanging;
  bool dropped = false;
  {
    const MutexLock lock(_state->mutex);
    while (!_state->waiting.empty() || _state->working > 0) {
      _state->allDone.waitUntil(_state->mutex, Clock::now() + kRound);
      if (!last && isCancelled()) {
        last = Clock::now() + grace;
        dropped = !_state->waiting.empty();
        _state->close();
      }
      if (last && Clock::now() > *last) break;
    }
    if (_state->working > 0) {
      dropped = true;
      hanging.swap(_state->threads);
    }
    _state->close();
  }
  for (std::thread& thread : hanging) thread.detach();
  return !dropped;
}

std::size_t FileWorkers::defaultWidth() {
  return std::clamp<std::size_t>(4 * std::max(1U, std::thread::hardware_concurrency()), 8, 64);
}

}  // namespace velorin
