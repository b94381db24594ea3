// The track that the controller wants next: `_nextTrack` and its lock.
#pragma once

#include <optional>

#include "foundation/Mutex.h"
#include "records/Track.h"

namespace velorin {

/// Any thread but the render thread; every member is one short critical section.
class NextTrack {
 public:
  struct Wish {
    Track track;
    bool mayCrossfade = true;
  };

  std::optional<Wish> get() const {
    MutexLock hold(_nextTrackLock);
    return _nextTrack;
  }
  void set(std::optional<Wish> next) {
    MutexLock hold(_nextTrackLock);
    _nextTrack = std::move(next);
  }

 private:
  mutable Mutex _nextTrackLock;
  std::optional<Wish> _nextTrack GUARDED_BY(_nextTrackLock);
};

}  // namespace velorin
