// One list played through the player from its first track to its end, and what a command has to
// tell on the way.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "records/Events.h"
#include "records/TrackInfo.h"

namespace velorin {

class EventBus;
class PlayerState;

/// What a run tells, on the main thread.
class PlayRunListener {
 public:
  virtual ~PlayRunListener() = default;
  /// The track is heard; `join`: how it took over from the one before, if it did.
  virtual void trackStarted(const TrackInfo& track, std::optional<Join> join) = 0;
  /// The track that was heard is over; playedOut: by itself and not because another was chosen.
  virtual void trackEnded(const TrackInfo& track, bool playedOut) = 0;
  /// The file cannot be played: what is wrong and what to do. The next one follows by itself.
  virtual void trackFailed(const std::string& path, const std::string& reason) = 0;
  /// Nothing is left to play, or there is no sound because the output does not work.
  virtual void runEnded(bool outputFailed) = 0;
};

/// The player decides what plays and passes over files that cannot be played; the run finds out why
/// they cannot, and notices the end. Main thread only. Player, bus and listener outlive
/// it; it is made after the player, so that it hears each event after the player has.
class PlayRun {
 public:
  PlayRun(PlayerState& player, EventBus& bus, PlayRunListener& listener);
  ~PlayRun();
  PlayRun(const PlayRun&) = delete;
  PlayRun& operator=(const PlayRun&) = delete;

  /// Plays the tracks from the one at `first` on, that one from the time given in seconds.
  void start(std::vector<TrackInfo> tracks, std::size_t first, std::optional<double> startTime);
  /// After runEnded(): plays on from that place of the player's list.
  void goOn(std::size_t index);
  /// Several within 0.3 s start one track. Behind the last track the run ends.
  void next();
  void previous();

  /// The place of the track in the player's list, from 1.
  std::size_t numberOf(const TrackInfo& track) const;

 private:
  struct Impl;
  std::shared_ptr<Impl> _impl;
};

}  // namespace velorin
