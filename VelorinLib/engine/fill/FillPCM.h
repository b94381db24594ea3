// The fill loop of PCM: keeps the ring full, serves seeks, joins track to track, and ends the last.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>

#include "engine/PlaybackSession.h"
#include "engine/joins/TrackJoins.h"

namespace velorin {

/// Runs on the fill thread from its start to its end. Never takes the engine's lifecycle lock.
class FillPCM {
 public:
  /// Why run() returned.
  enum class End {
    stopped,     ///< fillThreadShouldRun was cleared
    trackEnded,  ///< the last frame was rendered and the device has played it out
  };

  /// The session has its reader.
  explicit FillPCM(PlaybackSession& session) : _session(session), _joins(session) {}

  /// `betweenBlocks` is called before each block, on this thread. May be called again after
  /// trackEnded, when a seek came at the last moment. Where memory is short the track ends.
  End run(const std::function<void()>& betweenBlocks) noexcept;

  /// Does the seek that is pending, if any: drops the ring, moves the decoder, decodes a first
  /// stretch so that the seek is heard after one device buffer, resets the position. True when it
  /// did one. The fill thread, or the engine queue before that runs. Throws std::bad_alloc.
  bool handlePendingSeek();

 private:
  /// The source gives no more. What is left to do, in this order: find a next track, bring the
  /// resampler's tail to the ring, let the ring play out.
  struct SourceEnd {
    TrackJoins::EndCause cause = TrackJoins::EndCause::endOfStream;
    /// Version of the wish that `next` answers.
    std::optional<std::uint64_t> considered;
    std::optional<PreparedJoin> next;
    bool isDraining = false;  ///< begun: the resampler takes nothing more until it is empty
    bool isDrained = false;
  };

  enum class Pass { goOn, trackEnded };
  Pass pass();
  void readBlock(std::uint32_t wanted);
  Pass endFade();
  Pass atSourceEnd();
  bool considerWish();
  void waitForJoinToBeHeard();
  void stall() noexcept;
  Pass playOut() noexcept;
  void drainStep();

  bool prepareSource(const PendingSeek::Wish& wish);
  void prefillAfterSeek();

  bool waitForSpace(std::uint32_t frames) noexcept;
  void sleep(std::chrono::milliseconds whileRendering) noexcept;
  std::chrono::milliseconds napOf(std::int64_t frames) const noexcept;
  bool shouldRun() const noexcept;

  PlaybackSession& _session;
  TrackJoins _joins;
  std::optional<SourceEnd> _end;
};

}  // namespace velorin
