// A labelled queue that runs one task at a time, in order, on a thread of its own.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace velorin {

class SerialQueue {
 public:
  using Task = std::function<void()>;

  /// The label names the thread (its first 15 bytes after the last dots, as the kernel allows)
  /// and appears in messages. The thread starts with the first task.
  explicit SerialQueue(std::string label);

  /// Runs what is queued already, drops delayed tasks, then joins. Not from the queue itself.
  ~SerialQueue();
  SerialQueue(const SerialQueue&) = delete;
  SerialQueue& operator=(const SerialQueue&) = delete;

  const std::string& label() const noexcept;

  /// Queues a task. Any thread but the render thread. An exception that leaves a task is logged
  /// with the label and does not end the queue.
  void async(Task task);

  /// Queues a task to run no earlier than after the delay.
  void asyncAfter(std::chrono::milliseconds delay, Task task);

  /// Queues a task and waits for it; runs it in place when called on the queue itself. An
  /// exception that leaves the task reaches the caller.
  void sync(const Task& task);

  /// True on the queue's own thread.
  bool isCurrent() const noexcept;

 private:
  struct Impl;
  std::unique_ptr<Impl> _impl;
};

}  // namespace velorin
