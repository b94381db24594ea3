// A queue of operations that run up to `width` at a time.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <stop_token>
#include <string>

namespace velorin {

class OperationQueue {
 public:
  /// An operation looks at the token from time to time and returns early when it is set.
  /// An exception that leaves it is logged with the label.
  using Operation = std::function<void(std::stop_token)>;

  /// width: operations that may run at once, at least 1.
  OperationQueue(std::string label, std::size_t width);

  /// Drops what has not started, sets the token of what runs and waits for it. Not from one of
  /// its own operations.
  ~OperationQueue();
  OperationQueue(const OperationQueue&) = delete;
  OperationQueue& operator=(const OperationQueue&) = delete;

  /// Any thread but the render thread.
  void add(Operation operation);

  /// Runs after everything added before it, and before everything added after it.
  void addBarrier(Operation operation);

  /// Suspended: what runs goes on, nothing new starts. Any thread.
  void setSuspended(bool suspended);
  bool isSuspended() const;

  /// Changes the width; takes effect as operations start and end. Any thread.
  void setWidth(std::size_t width);
  std::size_t width() const;

  /// Drops what has not started and sets the token of what runs. Later additions run normally.
  void cancelAll();

  /// Operations waiting or running.
  std::size_t count() const;

  /// Blocks until the queue is empty. Not from one of its own operations.
  void waitUntilDone();

 private:
  struct Impl;
  std::unique_ptr<Impl> _impl;
};

}  // namespace velorin
