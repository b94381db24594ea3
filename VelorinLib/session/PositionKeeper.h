// The position that is shown.
#pragma once

#include <algorithm>

namespace velorin {

/// Pure; one thread. Between jumps the position never goes back: what the engine says of a seek may
/// be a fraction of a frame below the wish, and what it said before must not be shown after it.
class PositionKeeper {
 public:
  double seconds() const noexcept { return _seconds; }
  void jumpTo(double seconds) { _seconds = std::max(0.0, seconds); }

  /// A seek is on its way to the engine, which still tells where it was.
  void beginSeek(double seconds) {
    jumpTo(seconds);
    ++_seeksUnderWay;
  }
  void endSeek() { --_seeksUnderWay; }
  bool isSeeking() const noexcept { return _seeksUnderWay > 0; }

  /// What the engine says now. Returns what is shown.
  double advanceTo(double seconds) {
    if (_seeksUnderWay == 0) _seconds = std::max(_seconds, seconds);
    return _seconds;
  }

 private:
  double _seconds = 0;
  int _seeksUnderWay = 0;
};

}  // namespace velorin
