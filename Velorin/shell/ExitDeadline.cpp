#include "shell/ExitDeadline.h"

#include <unistd.h>

#include <string>
#include <thread>

#include "Console.h"
#include "Options.h"
#include "foundation/Mutex.h"
#include "foundation/ThreadName.h"

namespace velorin {

struct ExitDeadline::Impl {
  void run(std::chrono::steady_clock::time_point deadline) EXCLUDES(mutex) {
    nameThisThread("com.velorin.shell.deadline");
    {
      MutexLock lock(mutex);
      while (!isOver) {
        if (!changed.waitUntil(mutex, deadline)) break;
      }
      if (isOver) return;
    }
    reportError(std::string(step.load()) + ": ended without it");
    ::_exit(kExitFailure);
  }

  std::atomic<const char*> step{"the player does not stop"};
  Mutex mutex;
  ConditionVariable changed;
  bool isOver GUARDED_BY(mutex) = false;
  std::thread thread;
};

ExitDeadline::ExitDeadline() : _impl(std::make_unique<Impl>()) {}

ExitDeadline::~ExitDeadline() {
  {
    MutexLock lock(_impl->mutex);
    _impl->isOver = true;
    _impl->changed.notifyAll();
  }
  if (_impl->thread.joinable()) _impl->thread.join();
}

void ExitDeadline::start(std::chrono::milliseconds grace) {
  if (_impl->thread.joinable()) return;
  const auto deadline = std::chrono::steady_clock::now() + grace;
  _impl->thread = std::thread([impl = _impl.get(), deadline] { impl->run(deadline); });
}

void ExitDeadline::setStep(const char* waitingFor) noexcept {
  _impl->step.store(waitingFor);
}

}  // namespace velorin
