// The thread that fills the ring.
#pragma once

#include <functional>
#include <memory>
#include <thread>

#include "engine/PlaybackSession.h"
#include "engine/fill/FillPCM.h"

namespace velorin {

/// Owned and called by the engine queue under the lifecycle lock.
class FillThread {
 public:
  FillThread() = default;
  /// Stops, quickly.
  ~FillThread();
  FillThread(const FillThread&) = delete;
  FillThread& operator=(const FillThread&) = delete;

  /// Starts filling. `onTrackEnded` is called once, on the fill thread, when the track has been
  /// heard to its end; never after stop() returned. `realTime` asks for real-time scheduling.
  void start(std::shared_ptr<PlaybackSession> session, std::unique_ptr<FillPCM> fill,
             std::function<void()> onTrackEnded, bool realTime);

  /// Ends the thread. Waits at most 0.1 s when quick, 2 s otherwise. True when it has ended;
  /// false when it is stuck in a read: it is then left behind with its session and ends itself.
  bool stop(bool quick);

  /// True while the thread fills or waits for the ring to drain.
  bool isRunning() const;

  /// Asks for real-time scheduling of the running thread; it takes it between two blocks.
  void elevate();

 private:
  struct Shared;
  static void run(Shared& shared);
  std::shared_ptr<Shared> _shared;
  std::thread _thread;
};

}  // namespace velorin
