// Decides when the session is written, so that a crash costs at most the last position.
//
// What changes is written about a second after its first change, all changes of that second
// together, and only the parts that they touch. While music plays, the position alone is written
// once a minute. Nothing runs while nothing changes and nothing plays.
#pragma once

#include <chrono>
#include <functional>
#include <optional>

#include "foundation/MainThread.h"
#include "foundation/SerialQueue.h"
#include "session/PlayerTypes.h"
#include "session/SessionStore.h"

namespace velorin {

/// Main thread; the store is used on a thread of its own.
class SessionSaver {
 public:
  struct Source {
    /// The session with these parts filled in; what else is in it is not looked at. Empty when
    /// there is no current track. In all that is asked for, `queue` alone may take long.
    std::function<std::optional<SavedSession>(SessionParts)> session;
    std::function<bool()> isPlaying;
  };
  struct Times {
    std::chrono::milliseconds afterChange{1000};
    std::chrono::milliseconds whilePlaying{60'000};
  };

  /// The store outlives it, and is its own meanwhile.
  SessionSaver(SessionStore& store, Source source, Times times);
  SessionSaver(SessionStore& store, Source source) : SessionSaver(store, std::move(source), {}) {}

  /// Until it is started it writes nothing, not even when it is told to: a player that has not yet
  /// read the stored session must not write its own emptiness over it. `keepsStored`: the stored
  /// session could not be read, and stays until the listener has played something.
  void start(bool keepsStored = false);

  /// Told of every change of the player.
  void changed(PlayerChanges changes);

  /// Writes everything now, to the disk. False when that was not possible. True and nothing done
  /// where the stored session is to be kept.
  bool saveNow();

 private:
  enum class Phase { waiting, keeping, saving };

  void write();
  void followState();

  SessionStore& _store;
  const Source _source;
  const Times _times;
  Phase _phase = Phase::waiting;
  SessionParts _due;
  bool _isCleared = false;  ///< nothing is stored: the next session needs all its parts
  RepeatingTimer _afterChange;
  RepeatingTimer _whilePlaying;
  /// Where the store is used: a long queue takes it milliseconds.
  SerialQueue _puts{"com.velorin.session"};
};

}  // namespace velorin
