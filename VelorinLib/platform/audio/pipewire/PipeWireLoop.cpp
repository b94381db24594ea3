#include "platform/audio/pipewire/PipeWireLoop.h"

#include <algorithm>
#include <cerrno>
#include <mutex>

namespace velorin {
namespace {

timespec timespecOf(std::chrono::nanoseconds time) {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time);
  return {static_cast<time_t>(seconds.count()), static_cast<long>((time - seconds).count())};
}

}  // namespace

std::unique_ptr<PipeWireLoop> PipeWireLoop::create(AudioStatus& status) {
  static std::once_flag once;
  std::call_once(once, [] { pw_init(nullptr, nullptr); });
  std::unique_ptr<PipeWireLoop> loop(new PipeWireLoop);
  if (!loop->open()) {
    status = AudioStatus::failure(errno > 0 ? -errno : -EIO, "PipeWire's client library failed");
    return nullptr;
  }
  status = AudioStatus::success();
  return loop;
}

bool PipeWireLoop::open() {
  _loop = pw_thread_loop_new("velorin-pw", nullptr);
  if (!_loop) return false;
  // This configuration asks for a real-time data thread, by rlimit or through RealtimeKit.
  _context =
      pw_context_new(loop(), pw_properties_new(PW_KEY_CONFIG_NAME, "client-rt.conf", nullptr), 0);
  if (!_context) _context = pw_context_new(loop(), nullptr, 0);
  if (!_context) return false;
  _timer = pw_loop_add_timer(
      loop(), [](void* data, std::uint64_t) { static_cast<PipeWireLoop*>(data)->runDue(); }, this);
  _running = _timer && pw_thread_loop_start(_loop) == 0;
  return _running;
}

PipeWireLoop::~PipeWireLoop() {
  stop();
  if (_timer) pw_loop_destroy_source(loop(), _timer);
  if (_context) pw_context_destroy(_context);
  if (_loop) pw_thread_loop_destroy(_loop);
}

void PipeWireLoop::stop() {
  if (_running) pw_thread_loop_stop(_loop);
  _running = false;
}

bool PipeWireLoop::waitUntil(Clock::time_point deadline, const std::function<bool()>& condition,
                             std::chrono::milliseconds poll) {
  while (!condition()) {
    const auto left = deadline - Clock::now();
    if (left <= Clock::duration::zero()) return false;
    const auto slice = std::min<std::chrono::nanoseconds>(left, poll);
    timespec until{};
    pw_thread_loop_get_time(_loop, &until, slice.count());
    pw_thread_loop_timed_wait_full(_loop, &until);
  }
  return true;
}

void PipeWireLoop::defer(Task task, std::chrono::milliseconds delay) {
  MutexLock lock(_mutex);
  const auto due = Clock::now() + delay;
  const bool isFirst = _tasks.empty() || due < _tasks.begin()->first;
  _tasks.emplace(due, std::move(task));
  if (isFirst) arm(due);
}

void PipeWireLoop::arm(Clock::time_point due) {
  // A zero time would disarm the timer.
  const auto delay =
      std::max<std::chrono::nanoseconds>(due - Clock::now(), std::chrono::nanoseconds(1));
  timespec value = timespecOf(delay);
  pw_loop_update_timer(loop(), _timer, &value, nullptr, false);
}

void PipeWireLoop::runDue() {
  std::vector<Task> due;
  {
    MutexLock lock(_mutex);
    const auto end = _tasks.upper_bound(Clock::now());
    for (auto task = _tasks.begin(); task != end; ++task) due.push_back(std::move(task->second));
    _tasks.erase(_tasks.begin(), end);
    if (!_tasks.empty()) arm(_tasks.begin()->first);
  }
  for (const Task& task : due) task();
}

}  // namespace velorin
