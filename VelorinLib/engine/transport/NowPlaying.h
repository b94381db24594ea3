// What the engine says of itself: state, track, duration. Written by the transport, read by all.
#pragma once

#include <optional>

#include "foundation/Mutex.h"
#include "records/PlaybackTypes.h"
#include "records/Track.h"

namespace velorin {

/// Any thread but the render thread; every member is one short critical section.
class NowPlaying {
 public:
  PlaybackState state() const {
    MutexLock hold(_mutex);
    return _state;
  }
  std::optional<Track> currentTrack() const {
    MutexLock hold(_mutex);
    return _currentTrack;
  }
  std::optional<Track> lastTrack() const {
    MutexLock hold(_mutex);
    return _lastTrack;
  }
  /// Seconds.
  double duration() const {
    MutexLock hold(_mutex);
    return _duration;
  }
  int sourceBitDepth() const {
    MutexLock hold(_mutex);
    return _sourceBitDepth;
  }

  void setState(PlaybackState state) {
    MutexLock hold(_mutex);
    _state = state;
  }
  void setTrack(const Track& track) {
    MutexLock hold(_mutex);
    _currentTrack = track;
  }
  void setStream(double duration, int sourceBitDepth) {
    MutexLock hold(_mutex);
    _duration = duration;
    _sourceBitDepth = sourceBitDepth;
  }
  /// The current track becomes the last one, everything else is as before the first play.
  void clear() {
    MutexLock hold(_mutex);
    if (_currentTrack) _lastTrack = std::move(_currentTrack);
    _currentTrack.reset();
    _state = PlaybackState::stopped;
    _duration = 0;
    _sourceBitDepth = 0;
  }

 private:
  mutable Mutex _mutex;
  PlaybackState _state GUARDED_BY(_mutex) = PlaybackState::stopped;
  std::optional<Track> _currentTrack GUARDED_BY(_mutex);
  std::optional<Track> _lastTrack GUARDED_BY(_mutex);
  double _duration GUARDED_BY(_mutex) = 0;
  int _sourceBitDepth GUARDED_BY(_mutex) = 0;
};

}  // namespace velorin
