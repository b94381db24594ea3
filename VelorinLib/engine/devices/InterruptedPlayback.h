// Playback that lost its device, until it goes on elsewhere or is given up.
#pragma once

#include <chrono>
#include <optional>
#include <utility>

#include "records/Track.h"

namespace velorin {

/// What is needed to go on where the music was.
struct Resumption {
  Track track;
  double position = 0;  ///< seconds in the track
  bool paused = false;
};

/// Under the lifecycle lock. Waits for nothing itself: it keeps the place and counts attempts. A
/// generation is the engine's number of the stream; whatever the listener does changes it.
class InterruptedPlayback {
 public:
  /// Attempts to go on before playback is given up.
  static constexpr int kAttempts = 25;

  /// Keeps the place. `generation` is that of the stopped engine. Returns a ticket that holds
  /// until it is taken out or replaced.
  int wait(Resumption where, int generation) {
    _where = std::move(where);
    _generation = generation;
    return ++_ticket;
  }
  bool isWaiting(int ticket, int generation) const noexcept {
    return _where && _ticket == ticket && _generation == generation;
  }

  /// Takes the place out; nothing when the listener did something else meanwhile: that counts.
  std::optional<Resumption> take(int generation) {
    auto where = std::exchange(_where, std::nullopt);
    return _generation == generation ? where : std::nullopt;
  }

  /// Playback was begun anew at the place, as the stream of that generation.
  void noteBegun(const Resumption& where, int generation) {
    _begunAt = where.position;
    _begunGeneration = generation;
  }
  /// That very stream was lost again and has not come on: a device that fails whenever it plays
  /// must not be tried at once and for ever.
  bool isStuck(const Resumption& where, int generation) const noexcept {
    return _begunGeneration == generation && where.position < _begunAt + kProgress;
  }

  void renewAttempts() noexcept {
    _attemptsLeft = kAttempts;
    _deadline = Clock::now() + kPatience;
  }
  /// False when there is none left, or they took too long.
  bool useAttempt() noexcept {
    if (_attemptsLeft <= 0 || Clock::now() >= _deadline) return false;
    --_attemptsLeft;
    return true;
  }

 private:
  using Clock = std::chrono::steady_clock;
  /// A server that does not answer makes each attempt take seconds.
  static constexpr std::chrono::seconds kPatience{15};
  static constexpr double kProgress = 0.5;  ///< seconds

  std::optional<Resumption> _where;
  int _generation = 0;
  int _ticket = 0;
  double _begunAt = 0;
  int _begunGeneration = -1;
  int _attemptsLeft = kAttempts;
  Clock::time_point _deadline = Clock::now() + kPatience;
};

}  // namespace velorin
