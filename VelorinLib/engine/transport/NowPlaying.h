// What the engine says of itself: state, track, duration. Written by the transport, read by all.
#pragma once

#include <optional>
#include <utility>

#include "engine/SourceFacts.h"
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
  /// What is about to be opened.
  void setTrack(const Track& track) {
    MutexLock hold(_mutex);
    _currentTrack = track;
    _serial = 0;
  }
  /// As setTrack(), for a track that takes the place of one that plays, without a stop between.
  void replaceTrack(const Track& track) {
    MutexLock hold(_mutex);
    _lastTrack = std::exchange(_currentTrack, track);
    _serial = 0;
  }
  /// What plays now: opened, or jumped to.
  void setSource(const SourceFacts& facts) {
    MutexLock hold(_mutex);
    set(facts);
  }
  /// A joined track takes over from the one it was joined to. False, with nothing changed, when
  /// something else is playing by now: the listener was faster.
  bool takeOver(const SourceFacts& facts) {
    MutexLock hold(_mutex);
    if (_serial == 0 || _serial != facts.predecessor) return false;
    _lastTrack = std::move(_currentTrack);
    set(facts);
    return true;
  }
  /// The current track becomes the last one, everything else is as before the first play.
  void clear() {
    MutexLock hold(_mutex);
    if (_currentTrack) _lastTrack = std::move(_currentTrack);
    _currentTrack.reset();
    _state = PlaybackState::stopped;
    _duration = 0;
    _sourceBitDepth = 0;
    _serial = 0;
  }

 private:
  void set(const SourceFacts& facts) REQUIRES(_mutex) {
    _currentTrack = facts.track;
    _duration = facts.duration;
    _sourceBitDepth = facts.sourceBitDepth;
    _serial = facts.serial;
  }

  mutable Mutex _mutex;
  PlaybackState _state GUARDED_BY(_mutex) = PlaybackState::stopped;
  std::optional<Track> _currentTrack GUARDED_BY(_mutex);
  std::optional<Track> _lastTrack GUARDED_BY(_mutex);
  double _duration GUARDED_BY(_mutex) = 0;
  int _sourceBitDepth GUARDED_BY(_mutex) = 0;
  std::uint64_t _serial GUARDED_BY(_mutex) = 0;  ///< of the current track's source
};

}  // namespace velorin
