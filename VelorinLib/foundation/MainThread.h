// The main thread and its run loop.
//
// The thread that first calls MainThread::instance() in main() is the main thread; tests make
// their own. Observable state, notifications that the interface hears and every timer live here.
// Nothing may block it for longer than 4 ms.
#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace boost::asio {
class io_context;
}

namespace velorin {

class MainThread {
 public:
  using Task = std::function<void()>;
  using Clock = std::chrono::steady_clock;

  /// The one run loop of the process. The thread that makes the first call becomes the main
  /// thread.
  static MainThread& instance();

  MainThread(const MainThread&) = delete;
  MainThread& operator=(const MainThread&) = delete;

  /// Any thread: true on the main thread.
  bool isCurrent() const noexcept;

  /// Queues a task; tasks run in the order of posting. Any thread but the render thread.
  void post(Task task);

  /// Queues a task to run no earlier than after the delay. Any thread but the render thread.
  void postAfter(std::chrono::milliseconds delay, Task task);

  /// The same with the moment itself. Tasks that fall due together run in the order of posting.
  void postAt(Clock::time_point due, Task task);

  /// Main thread. Runs tasks until stop() is called.
  void run();

  /// Any thread. Makes run() return after the task it is in. A stop before run() is kept.
  void stop();

  /// Main thread. Runs what is ready and returns without waiting: the entry for a desktop
  /// toolkit that owns the loop (call it from the toolkit's idle or wake-up handler), and for
  /// tests. What the tasks themselves post waits for the next call, so that it always returns.
  /// Returns the number of tasks that ran.
  std::size_t runReady();

  /// Main thread. Runs tasks until the condition holds; false when the timeout passed first.
  bool runUntil(const std::function<bool()>& condition, std::chrono::milliseconds timeout);

  /// Called each time a task becomes queued (on the posting thread) or a delayed task falls due
  /// (on a thread of its own), so that a toolkit can schedule runReady(). Descriptors of
  /// context() do not call it; they are served by each runReady(). Set once, before other
  /// threads post and before the first delayed task; an empty hook ends it.
  void setWakeHook(Task hook);

  /// For descriptors and signals that are to be served on the main thread (include
  /// <boost/asio.hpp> only in the one file that needs it).
  boost::asio::io_context& context() noexcept;

 private:
  MainThread();
  ~MainThread();
  struct Impl;
  std::unique_ptr<Impl> _impl;
};

/// A repeating timer whose task runs on the main thread. Made, started and stopped on the main
/// thread; destruction stops it. A tick that was due while stopped is dropped.
class RepeatingTimer {
 public:
  RepeatingTimer();
  ~RepeatingTimer();
  RepeatingTimer(const RepeatingTimer&) = delete;
  RepeatingTimer& operator=(const RepeatingTimer&) = delete;

  /// Starts anew; the first tick falls after one interval. Ticks do not pile up: a loop that was
  /// busy gets one tick, not several.
  void start(std::chrono::milliseconds interval, std::function<void()> tick);
  void stop();
  bool isRunning() const noexcept;

 private:
  struct Impl;
  std::shared_ptr<Impl> _impl;
};

}  // namespace velorin
