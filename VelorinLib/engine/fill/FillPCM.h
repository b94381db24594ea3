// The fill loop of a PCM file: keeps the ring full, serves seeks, and ends the track.
#pragma once

#include <cstdint>
#include <functional>

#include "engine/PlaybackSession.h"
#include "engine/fill/DecodeStage.h"

namespace velorin {

/// Runs on the fill thread from its start to its end. Never throws, never takes the engine's
/// lifecycle lock.
class FillPCM {
 public:
  /// Why run() returned.
  enum class End {
    stopped,     ///< fillThreadShouldRun was cleared
    trackEnded,  ///< the last frame was rendered and the device has played it out
  };

  /// Allocates every buffer the loop will use. The session has its decoder, formats and ring.
  explicit FillPCM(PlaybackSession& session);

  /// `betweenBlocks` is called before each block, on this thread.
  End run(const std::function<void()>& betweenBlocks) noexcept;

  /// Does the seek that is pending, if any: drops the ring, moves the decoder, decodes a first
  /// stretch so that the seek is heard after one device buffer, resets the position. True when it
  /// did one. The fill thread, or the engine queue before that runs.
  bool handlePendingSeek() noexcept;

 private:
  enum class Pass { goOn, streamEnded };
  Pass pass() noexcept;
  void finishStream() noexcept;
  bool drainRing() noexcept;
  bool waitForSpace(std::uint32_t frames) noexcept;
  void sleep(std::chrono::milliseconds whileRendering) noexcept;
  bool shouldRun() const noexcept;
  bool seekIsPending() const noexcept;

  PlaybackSession& _session;
  DecodeStage _stage;
};

}  // namespace velorin
