// Where the listener is: which track, and how far into it.
//
// The ring's counters run free, so every frame of a stream has a number, and the render callback
// moves the position by doing what it does anyway: adding the frames it took to the ring's read
// counter. That one word is all it writes. What a frame number means stands here, in at most two
// entries: the track that was announced last, and the one that was joined behind it and begins at a
// frame still to come. So `framesReadFromBuffer`, `seekFrameOffset` and
// `gaplessCountdown` are differences of frame numbers, a render call that spans a boundary splits
// exactly, and no reader can see half a change.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>

#include "engine/SourceFacts.h"
#include "engine/render/RenderGate.h"
#include "engine/ring/AudioRingBuffer.h"
#include "foundation/Mutex.h"

namespace velorin {

/// Members may be called on any thread but the render thread, unless they say otherwise. "Frame" is
/// a number in the ring's count, at the client rate; positions are seconds in a track.
class PositionClock {
 public:
  /// "No join waits."
  static constexpr std::int64_t kNever = -1;

  /// Both outlive the clock. `clientRate` in Hz.
  PositionClock(AudioRingBuffer& ring, RenderGate& gate, double clientRate)
      : _ring(ring), _gate(gate), _clientRate(clientRate) {}

  struct Reading {
    SharedFacts facts;  ///< of the track that is heard; null before the first jump()
    double seconds = 0;
  };
  /// `latencyFrames` are taken but still held by the device: they are not heard yet. The position
  /// never falls below that at which its track began, and only grows until a jump, a join or a
  /// pause of a device that drops what it holds.
  Reading read(std::int64_t latencyFrames) const EXCLUDES(_mutex);

  // --- Fill thread, or the engine queue before that runs ---

  /// Drops the ring's content: the next frame written is at the position. No join waits any more.
  void jump(SharedFacts facts, double seconds) EXCLUDES(_mutex);

  /// A track was joined: from the frame on it is this one, at the position.
  void announceAt(std::int64_t frame, SharedFacts facts, double seconds) EXCLUDES(_mutex);

  /// The joined track is the one that is heard from now on, whether its frame has come or not.
  void takeOver() EXCLUDES(_mutex);

  /// Takes the join back: drops the ring's content from `frame` on. False, with nothing changed,
  /// when that frame has been rendered already. `reach` is the most that a render call takes.
  bool revoke(std::int64_t frame, std::int64_t reach) EXCLUDES(_mutex);

  // --- Any thread, without a lock ---

  /// `gaplessCountdown`: frames to be rendered until the joined track is heard, 0 when it is, or
  /// kNever.
  std::int64_t countdown() const noexcept;

  // --- Engine queue, while the output stands still ---

  /// The device dropped the last `frames` frames unheard: they are played again, across a join if
  /// it must be. What was dropped by a jump before that stays dropped. False, with nothing changed,
  /// when the ring has not kept so many; it keeps `kept`.
  bool takeBack(std::int64_t frames, std::int64_t kept) EXCLUDES(_mutex);

 private:
  struct Entry {
    SharedFacts facts;
    std::int64_t begin = 0;  ///< its first frame
    double offset = 0;       ///< position at that frame
  };

  AudioRingBuffer& _ring;
  RenderGate& _gate;
  const double _clientRate;
  mutable Mutex _mutex;
  Entry _announced GUARDED_BY(_mutex);
  std::optional<Entry> _joined GUARDED_BY(_mutex);
  std::int64_t _validFrom GUARDED_BY(_mutex) = 0;  ///< the ring holds nothing from before this
  std::atomic<std::int64_t> _boundary{kNever};     ///< begin of `_joined`, for countdown()
};

}  // namespace velorin
