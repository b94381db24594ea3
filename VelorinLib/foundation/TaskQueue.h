// Tasks in the order of posting, and tasks that fall due: the list that SerialQueue and
// MainThread have in common. It holds no lock of its own; the owner guards it.
#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string_view>
#include <utility>

namespace velorin {

class TaskQueue {
 public:
  using Task = std::function<void()>;
  using Clock = std::chrono::steady_clock;
  using Delayed = std::multimap<Clock::time_point, Task>;

  void push(Task task) { _ready.push_back(std::move(task)); }
  void pushAt(Clock::time_point due, Task task) { _delayed.emplace(due, std::move(task)); }

  /// Moves what has fallen due behind what is ready, earliest first; equal times keep the order
  /// in which they were added. Returns how many tasks are ready now.
  std::size_t collectDue(Clock::time_point now) {
    const auto end = _delayed.upper_bound(now);
    for (auto it = _delayed.begin(); it != end; ++it) _ready.push_back(std::move(it->second));
    _delayed.erase(_delayed.begin(), end);
    return _ready.size();
  }

  /// The next ready task, or an empty function.
  Task pop() {
    if (_ready.empty()) return {};
    Task task = std::move(_ready.front());
    _ready.pop_front();
    return task;
  }

  bool hasReady() const { return !_ready.empty(); }

  std::optional<Clock::time_point> nextDue() const {
    if (_delayed.empty()) return std::nullopt;
    return _delayed.begin()->first;
  }

  /// Gives up the delayed tasks, so that the owner can destroy them without its lock.
  [[nodiscard]] Delayed takeDelayed() { return std::exchange(_delayed, {}); }

 private:
  std::deque<Task> _ready;
  Delayed _delayed;
};

/// Runs a task; an exception that leaves it becomes a log line that names the queue.
void runLogged(const TaskQueue::Task& task, std::string_view label) noexcept;

}  // namespace velorin
