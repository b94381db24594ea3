#include "foundation/MainThread.h"

#include <atomic>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <cassert>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "foundation/Log.h"
#include "foundation/Mutex.h"
#include "foundation/Realtime.h"
#include "foundation/SerialQueue.h"
#include "foundation/TaskQueue.h"

namespace velorin {

namespace asio = boost::asio;

// Tasks stand in a list of their own rather than in the io_context: so runReady() can tell what
// was ready when it began, and a task that posts itself again cannot keep it from returning. The
// io_context is what the thread waits in, and serves the descriptors.
struct MainThread::Impl {
  const std::thread::id thread = std::this_thread::get_id();
  const std::string label = "main thread";

  asio::io_context context;
  const asio::executor_work_guard<asio::io_context::executor_type> work{context.get_executor()};
  asio::steady_timer alarm{context};  // ends the wait when a delayed task falls due
  std::atomic<bool> waking{false};    // a no-op that ends the wait is already in the context
  std::atomic<bool> stopping{false};

  Mutex mutex;
  TaskQueue tasks GUARDED_BY(mutex);

  // Set once before other threads post, constant from then on.
  Task wakeHook;
  std::unique_ptr<SerialQueue> wakeTimer;  // calls the hook when a delayed task falls due

  void wake() {
    if (waking.exchange(true)) return;
    asio::post(context, [this] { waking.store(false); });
  }

  std::size_t collect() EXCLUDES(mutex) {
    MutexLock lock(mutex);
    return tasks.collectDue(Clock::now());
  }

  bool runOne() EXCLUDES(mutex) {
    Task task;
    {
      MutexLock lock(mutex);
      task = tasks.pop();
    }
    if (!task) return false;
    runLogged(task, label);
    return true;
  }

  /// Runs the tasks that are ready now until the condition holds; returns how many ran.
  template <class Condition>
  std::size_t runBatch(const Condition& until) EXCLUDES(mutex) {
    std::size_t ran = 0;
    for (std::size_t ready = collect(); ran < ready; ++ran) {
      if (until() || !runOne()) break;
    }
    return ran;
  }

  /// Serves descriptors; waits for one, for a task or for the given moment unless tasks are ready.
  void serveContext(std::optional<Clock::time_point> deadline) EXCLUDES(mutex) {
    {
      MutexLock lock(mutex);
      if (tasks.hasReady()) deadline = Clock::time_point::min();
      const auto due = tasks.nextDue();
      if (due && (!deadline || *due < *deadline)) deadline = due;
    }
    try {
      if (!deadline) {
        context.run_one();
      } else if (*deadline > Clock::now()) {
        // run_one_until() would look up once a second, for hours on end.
        alarm.expires_at(*deadline);
        alarm.async_wait([](const boost::system::error_code&) {});
        context.run_one();
        alarm.cancel();
      }
      context.poll();
    } catch (const std::exception& error) {
      log::line("❌ {}: a descriptor handler failed: {}", label, error.what());
    }
  }
};

MainThread::MainThread() : _impl(std::make_unique<Impl>()) {}
MainThread::~MainThread() = default;

MainThread& MainThread::instance() {
  // Never destroyed: timers and queues that end after main() may still post to it.
  static MainThread& loop = *new MainThread;
  return loop;
}

bool MainThread::isCurrent() const noexcept {
  return _impl->thread == std::this_thread::get_id();
}

void MainThread::post(Task task) {
  assert(!realtime::active());
  {
    MutexLock lock(_impl->mutex);
    _impl->tasks.push(std::move(task));
  }
  _impl->wake();
  if (_impl->wakeHook) _impl->wakeHook();
}

void MainThread::postAfter(std::chrono::milliseconds delay, Task task) {
  postAt(Clock::now() + delay, std::move(task));
}

void MainThread::postAt(Clock::time_point due, Task task) {
  assert(!realtime::active());
  {
    MutexLock lock(_impl->mutex);
    _impl->tasks.pushAt(due, std::move(task));
  }
  _impl->wake();
  if (_impl->wakeTimer) {
    const auto delay = std::chrono::ceil<std::chrono::milliseconds>(due - Clock::now());
    _impl->wakeTimer->asyncAfter(delay, _impl->wakeHook);
  }
}

void MainThread::run() {
  assert(isCurrent());
  const auto stopping = [this] { return _impl->stopping.load(); };
  while (!stopping()) {
    _impl->runBatch(stopping);
    if (!stopping()) _impl->serveContext(std::nullopt);
  }
  _impl->stopping.store(false);
}

void MainThread::stop() {
  _impl->stopping.store(true);
  _impl->wake();
}

std::size_t MainThread::runReady() {
  assert(isCurrent());
  _impl->serveContext(Clock::time_point::min());
  return _impl->runBatch([] { return false; });
}

bool MainThread::runUntil(const std::function<bool()>& condition,
                          std::chrono::milliseconds timeout) {
  assert(isCurrent());
  const auto deadline = Clock::now() + timeout;
  for (;;) {
    _impl->runBatch(condition);
    if (condition()) return true;
    if (Clock::now() >= deadline) return false;
    _impl->serveContext(deadline);
  }
}

void MainThread::setWakeHook(Task hook) {
  _impl->wakeTimer.reset();
  _impl->wakeHook = std::move(hook);
  if (_impl->wakeHook) {
    _impl->wakeTimer = std::make_unique<SerialQueue>("com.velorin.mainthread.wake");
  }
}

asio::io_context& MainThread::context() noexcept {
  return _impl->context;
}

struct RepeatingTimer::Impl {
  std::uint64_t generation = 0;  // tells the ticks of an earlier start apart
  bool running = false;
  std::chrono::milliseconds interval{};
  MainThread::Clock::time_point due;
  std::function<void()> tick;

  static void schedule(const std::shared_ptr<Impl>& self) {
    MainThread::instance().postAt(
        self->due, [weak = std::weak_ptr<Impl>(self), generation = self->generation] {
          if (const auto timer = weak.lock()) fire(timer, generation);
        });
  }

  static void fire(const std::shared_ptr<Impl>& self, std::uint64_t generation) {
    if (!self->running || self->generation != generation) return;
    // The next tick keeps the rhythm; those a busy loop has missed are left out.
    const auto now = MainThread::Clock::now();
    self->due += self->interval;
    if (self->due <= now) self->due += self->interval * ((now - self->due) / self->interval + 1);
    schedule(self);
    const auto tick = self->tick;  // a copy: the tick may start, stop or destroy its timer
    tick();
  }
};

RepeatingTimer::RepeatingTimer() : _impl(std::make_shared<Impl>()) {}

RepeatingTimer::~RepeatingTimer() {
  stop();
}

void RepeatingTimer::start(std::chrono::milliseconds interval, std::function<void()> tick) {
  assert(MainThread::instance().isCurrent());
  assert(interval.count() > 0);
  ++_impl->generation;
  _impl->running = true;
  _impl->interval = std::max(interval, std::chrono::milliseconds(1));
  _impl->due = MainThread::Clock::now() + _impl->interval;
  _impl->tick = std::move(tick);
  Impl::schedule(_impl);
}

void RepeatingTimer::stop() {
  assert(MainThread::instance().isCurrent());
  _impl->running = false;
  _impl->tick = nullptr;
}

bool RepeatingTimer::isRunning() const noexcept {
  return _impl->running;
}

}  // namespace velorin
