#include "engine/fill/FillThread.h"

#include "foundation/Log.h"
#include "foundation/Mutex.h"
#include "foundation/ThreadName.h"
#include "platform/power/RealtimePriority.h"

namespace velorin {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kQuickStop{100};
constexpr milliseconds kPatientStop{2000};

/// Above ordinary work, below the render thread that it serves.
constexpr int kFillPriority = 20;

void elevateThisThread() {
  const ThreadPriority granted = raiseThreadPriority(kFillPriority);
  if (granted.isRealtime) {
    log::line("⚡ Fill thread elevated to real-time scheduling");
  } else {
    log::line("⚠️ Failed to set RT thread policy: {}", granted.scheduling);
  }
}

}  // namespace

/// What the thread and its owner share; the thread keeps it alive when it is left behind.
struct FillThread::Shared {
  std::shared_ptr<PlaybackSession> session;
  std::unique_ptr<FillPCM> fill;
  std::atomic<bool> wantsRealTime{false};

  Mutex mutex;
  ConditionVariable finishedCondition;
  bool finished GUARDED_BY(mutex) = false;
  /// Cleared by stop(): what is called under the mutex cannot be called after it.
  std::function<void()> onTrackEnded GUARDED_BY(mutex);
};

FillThread::~FillThread() {
  stop(true);
}

void FillThread::start(std::shared_ptr<PlaybackSession> session, std::unique_ptr<FillPCM> fill,
                       std::function<void()> onTrackEnded, bool realTime) {
  stop(true);
  _shared = std::make_shared<Shared>();
  _shared->session = std::move(session);
  _shared->fill = std::move(fill);
  _shared->wantsRealTime = realTime;
  {
    MutexLock hold(_shared->mutex);
    _shared->onTrackEnded = std::move(onTrackEnded);
  }
  _shared->session->cells.fillThreadShouldRun.store(true);
  _thread = std::thread([shared = _shared] { run(*shared); });
}

void FillThread::run(Shared& shared) {
  nameThisThread("com.velorin.fill");
  for (;;) {
    const FillPCM::End end = shared.fill->run([&shared] {
      if (shared.wantsRealTime.exchange(false)) elevateThisThread();
    });
    MutexLock hold(shared.mutex);
    // A seek at the last moment brings the track back. Who asks for one and then finds the thread
    // finished knows that it came too late.
    if (end == FillPCM::End::trackEnded && shared.session->seek.isPending()) continue;
    if (end == FillPCM::End::trackEnded) {
      shared.session->cells.isOver.store(true);
      if (shared.onTrackEnded) shared.onTrackEnded();
    }
    shared.finished = true;
    shared.finishedCondition.notifyAll();
    return;
  }
}

bool FillThread::stop(bool quick) {
  if (!_shared) return true;
  const std::shared_ptr<Shared> shared = std::exchange(_shared, nullptr);
  shared->session->cells.fillThreadShouldRun.store(false);
  shared->session->waker.signal();

  const auto deadline = std::chrono::steady_clock::now() + (quick ? kQuickStop : kPatientStop);
  bool finished = false;
  {
    MutexLock hold(shared->mutex);
    shared->onTrackEnded = nullptr;
    while (!shared->finished && shared->finishedCondition.waitUntil(shared->mutex, deadline)) {
    }
    finished = shared->finished;
  }
  finished ? _thread.join() : _thread.detach();
  return finished;
}

bool FillThread::isRunning() const {
  if (!_shared) return false;
  MutexLock hold(_shared->mutex);
  return !_shared->finished;
}

void FillThread::elevate() {
  if (!_shared) return;
  _shared->wantsRealTime = true;
  _shared->session->waker.signal();
}

}  // namespace velorin
