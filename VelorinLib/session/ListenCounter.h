// What counts as a listen: when it began, how long it was, whether it was a skip.
#pragma once

#include <chrono>
#include <functional>
#include <optional>

namespace velorin {

/// Pure, with the clock of its maker; one thread. A listen begins with the wish to play a track,
/// counts once the track was heard, and ends when it is left. Pauses belong to it.
class ListenCounter {
 public:
  using TimePoint = std::chrono::system_clock::time_point;
  using Clock = std::function<TimePoint()>;

  static constexpr double kSkippedBelow = 0.3;   ///< of the track's duration
  static constexpr double kScrobbleAfter = 240;  ///< seconds, or
  static constexpr double kScrobbleShare = 0.5;  ///< of the duration, whichever comes first
  static constexpr double kShortestScrobble = 30;

  explicit ListenCounter(Clock clock) : _clock(std::move(clock)) {}

  struct Listen {
    double seconds = 0;
    bool skipped = false;
  };

  TimePoint now() const { return _clock(); }

  /// A track is asked for; a listen that was under way is dropped.
  void begin() {
    _startedAt = _clock();
    _endedAt.reset();
    _isHeard = false;
    _isScrobbled = false;
  }
  /// The track sounds. Goes on with a listen that was halted.
  void heard() {
    if (!_startedAt) begin();
    _endedAt.reset();
    _isHeard = true;
  }
  /// The sound ended: time that passes from now on is no listening.
  void halt() {
    if (_startedAt && !_endedAt) _endedAt = _clock();
  }
  void drop() {
    _startedAt.reset();
    _isHeard = false;
  }

  /// playbackStartedAt: empty while nothing is listened to.
  std::optional<TimePoint> startedAt() const noexcept { return _startedAt; }

  /// Ends the listen. Nothing when nothing was heard since the last one. `duration` is that of the
  /// track in seconds; of an unknown one (0) every listen is a play.
  std::optional<Listen> take(double duration) {
    if (!_startedAt || !_isHeard) {
      drop();
      return std::nullopt;
    }
    const double seconds = elapsed();
    drop();
    return Listen{seconds, duration > 0 && seconds < kSkippedBelow * duration};
  }

  /// When the listen began, once for each listen, as soon as it is long enough to be told to a
  /// listening service.
  std::optional<TimePoint> takeScrobble(double duration) {
    if (_isScrobbled || !_startedAt || !(duration >= kShortestScrobble)) return std::nullopt;
    const double seconds = elapsed();
    if (seconds < kScrobbleAfter && seconds < duration * kScrobbleShare) return std::nullopt;
    _isScrobbled = true;
    return _startedAt;
  }

 private:
  double elapsed() const {
    return std::chrono::duration<double>(_endedAt.value_or(_clock()) - *_startedAt).count();
  }

  Clock _clock;
  std::optional<TimePoint> _startedAt;
  std::optional<TimePoint> _endedAt;
  bool _isHeard = false;
  bool _isScrobbled = false;
};

}  // namespace velorin
