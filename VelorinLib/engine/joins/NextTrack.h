// The track that the controller wants next: `_nextTrack` and its lock.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>

#include "engine/SourceFacts.h"
#include "foundation/Mutex.h"
#include "records/Track.h"

namespace velorin {

/// Any thread but the render thread; every member is one short critical section.
class NextTrack {
 public:
  struct Wish {
    Track track;
    bool mayCrossfade = true;

    bool isSameAs(const Wish& other) const noexcept {
      return isSameTrack(track, other.track) && mayCrossfade == other.mayCrossfade;
    }
  };

  std::optional<Wish> get() const {
    MutexLock hold(_nextTrackLock);
    return _nextTrack;
  }

  /// Counts the changes, lock-free: whoever has acted on a number need not look again until there
  /// is another.
  std::uint64_t version() const noexcept { return _version.load(std::memory_order_acquire); }

  /// False when that was the wish already.
  bool set(std::optional<Wish> next) {
    MutexLock hold(_nextTrackLock);
    const bool isSame = next && _nextTrack ? next->isSameAs(*_nextTrack) : !next && !_nextTrack;
    _nextTrack = std::move(next);
    if (!isSame) ++_version;
    return !isSame;
  }

  /// Clears the wish if it is still this track, which has taken over.
  bool take(const Track& track) {
    MutexLock hold(_nextTrackLock);
    if (!_nextTrack || !isSameTrack(_nextTrack->track, track)) return false;
    _nextTrack.reset();
    ++_version;
    return true;
  }

 private:
  mutable Mutex _nextTrackLock;
  std::optional<Wish> _nextTrack GUARDED_BY(_nextTrackLock);
  std::atomic<std::uint64_t> _version{0};
};

}  // namespace velorin
