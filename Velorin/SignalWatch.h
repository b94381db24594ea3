// Signals of the process, handled on the main thread's loop.
#pragma once

#include <functional>
#include <memory>

namespace velorin {

/// While it lives: interrupt, terminate and hang-up call `stop`, at the latest the second of them
/// ends the process; the terminal's stop key calls `suspend`, stops the process, and calls
/// `resume` when it goes on. All on the main thread. One at a time.
class SignalWatch {
 public:
  struct Handlers {
    std::function<void()> stop;
    std::function<void()> suspend;
    std::function<void()> resume;
  };
  explicit SignalWatch(Handlers handlers);
  ~SignalWatch();
  SignalWatch(const SignalWatch&) = delete;
  SignalWatch& operator=(const SignalWatch&) = delete;

 private:
  struct Impl;
  std::shared_ptr<Impl> _impl;
};

}  // namespace velorin
