// The player's line to the engine: calls in the order of the listener's wishes, and which of the
// engine's news belong to the last of them.
//
// A wish to play takes its time: until it comes to the engine, the engine tells of the track before
// it. So each wish has a number, and the engine's queue says on the main thread when it begins with
// one and when it is done. What the engine tells before the last wish began is old.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "foundation/SerialQueue.h"
#include "records/Events.h"
#include "session/Lifeline.h"

namespace velorin {

class AudioEngine;

/// Main thread. Its destruction waits for the calls that are on their way.
class EngineLink {
 public:
  /// What became of a wish that no event has told of.
  struct Outcome {
    enum class Kind {
      stopped,       ///< as it was asked to be
      started,       ///< it plays, without having said so
      fileVanished,  ///< a file that had to be there is not; what played before goes on
      unavailable,   ///< the file cannot be found or opened
      noOutput,      ///< the engine is silent for another reason
    };
    Kind kind = Kind::stopped;
    /// The file's folder is there, and not an empty place where a volume was mounted.
    bool folderIsPresent = false;
  };

  /// `finished` is called for the last wish alone, and not for a track that has told of its start.
  EngineLink(AudioEngine& engine, std::function<void(const Outcome&)> finished);

  AudioEngine& engine() noexcept { return _engine; }
  const AudioEngine& engine() const noexcept { return _engine; }
  SerialQueue& queue() noexcept { return _queue; }

  // --- Wishes ---

  struct Start {
    std::optional<double> position;  ///< seconds in the track
    bool mustExist = false;          ///< looked for first, see Outcome::fileVanished
  };
  void play(const Track& track, const Start& start);
  void stop();
  /// A call that changes no track.
  void call(std::function<void(AudioEngine&)> call);
  /// A call, and what follows it on the main thread.
  void call(std::function<void(AudioEngine&)> call, std::function<void()> done);

  // --- News ---

  /// True for what belongs to the last wish. Confirms the wish when it is the track's start.
  bool accepts(const TrackDidChange& event);
  /// True when the last wish has come to the engine.
  bool isCurrent() const noexcept { return _begun == _serial; }
  /// True while a wish to play is neither confirmed nor given up.
  bool isWaiting() const noexcept { return _wished.has_value(); }
  /// True while a wish to stop is the last one and not met yet.
  bool isStopping() const noexcept { return _isStopping; }
  /// The file that the engine reports is that of the wish under way.
  bool acceptsUnavailable(const PlaybackFileUnavailable& event);

 private:
  using Serial = std::uint64_t;
  /// Runs the work on the queue between its two reports.
  void submit(std::optional<Track> wished, std::function<Outcome(AudioEngine&)> work);
  void finish(Serial serial, Outcome outcome);

  AudioEngine& _engine;
  const std::function<void(const Outcome&)> _finished;
  Serial _serial = 0;  // of the last wish
  /// What the engine looks at while it waits: a wish that was overtaken is not worth a wait.
  struct Progress {
    std::atomic<Serial> wished{0};
    std::atomic<Serial> begun{0};
  };
  const std::shared_ptr<Progress> _progress = std::make_shared<Progress>();
  Serial _begun = 0;  // of the last wish that the engine's queue has begun with
  std::optional<Track> _wished;
  bool _isUnavailable = false;
  bool _isStopping = false;
  Lifeline _life;
  SerialQueue _queue{"com.velorin.engine"};  // last: its tasks use the engine
};

}  // namespace velorin
