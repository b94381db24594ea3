// Plays files one after the other.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "FileFacts.h"
#include "PlayList.h"
#include "foundation/EventBus.h"

namespace velorin {

class AudioEngine;
class SerialQueue;

/// What a sequence tells, on the main thread.
class TrackSequenceListener {
 public:
  virtual ~TrackSequenceListener() = default;
  /// The track is heard.
  virtual void trackStarted(std::size_t index, const FileFacts& file) = 0;
  /// The track that was heard is over; playedOut: by itself and not because another was chosen.
  virtual void trackEnded(std::size_t index, bool playedOut) = 0;
  /// The file cannot be played: what is wrong and what to do. The next one follows by itself.
  virtual void trackFailed(std::size_t index, const std::string& reason) = 0;
  /// Nothing is left to play, or there is no sound because the output does not work.
  virtual void sequenceEnded(bool outputFailed) = 0;
};

/// Hands one file after the other to the engine on the engine's queue, and follows its events.
/// Main thread only. The engine outlives the queue; engine, queue and listener outlive the
/// sequence.
class TrackSequence {
 public:
  TrackSequence(AudioEngine& engine, SerialQueue& engineQueue, EventBus& bus,
                std::vector<PlayListEntry> files, TrackSequenceListener& listener);
  ~TrackSequence();
  TrackSequence(const TrackSequence&) = delete;
  TrackSequence& operator=(const TrackSequence&) = delete;

  /// Plays the first file, from the time given in seconds.
  void start(std::optional<double> startTime);
  void next();
  /// The track before; the first one starts anew.
  void previous();

  std::size_t count() const noexcept;

 private:
  struct Impl;
  std::shared_ptr<Impl> _impl;
};

}  // namespace velorin
