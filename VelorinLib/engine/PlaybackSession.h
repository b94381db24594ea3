// All state of one running stream, from play() to stop().
//
// The stream (ring, format, cells) is constant while track after track is joined into it; the
// source that fills it changes. What is decoded stands here, what is heard in the clock.
//
// Shared between the engine and the fill thread. A fill thread that is stuck in a read when the
// stream is stopped keeps its session alive until the read returns; the engine has long gone on
// with a new one. Whoever drops the last reference closes the file.
#pragma once

#include <atomic>
#include <memory>

#include "engine/SourceFacts.h"
#include "engine/fill/FillWaker.h"
#include "engine/fill/SourceReader.h"
#include "engine/joins/JoinDesk.h"
#include "engine/joins/PendingJoin.h"
#include "engine/rates/SampleRatePlan.h"
#include "engine/render/RenderGate.h"
#include "engine/render/TransportCells.h"
#include "engine/ring/AudioRingBuffer.h"
#include "engine/transport/PendingSeek.h"
#include "engine/transport/PositionClock.h"
#include "platform/audio/StreamFormat.h"

namespace velorin {

struct PlaybackSession {
  /// Makes the ring. Throws std::bad_alloc.
  PlaybackSession(const StreamFormat& format, std::int64_t ringFrames,
                  std::shared_ptr<JoinDesk> desk)
      : PlaybackSession(format,
                        std::make_shared<AudioRingBuffer>(format.channelsPerFrame, ringFrames,
                                                          format.bytesPerFrame),
                        std::move(desk)) {}

  /// Goes on with the ring of a stream of this format whose fill thread has ended and whose output
  /// stands still.
  PlaybackSession(const StreamFormat& format, std::shared_ptr<AudioRingBuffer> sameRing,
                  std::shared_ptr<JoinDesk> desk)
      : clientFormat(format),
        isIntegerOutput(format.isInteger()),
        joins(std::move(desk)),
        ringOwner(std::move(sameRing)),
        ring(*ringOwner),
        clock(ring, gate, format.sampleRate) {}

  // --- Constant once the fill thread runs ---

  const StreamFormat clientFormat;  ///< what the ring holds
  const bool isIntegerOutput;
  const std::shared_ptr<JoinDesk> joins;
  /// As they were when the stream began: joins follow the same plan.
  RateSettings rateSettings;
  RateOffer rateOffer;
  int generation = 0;  ///< `playGeneration` at the start
  /// Frames of the ring that stay unwritten behind the reader, so that what a device drops when it
  /// is paused can be played again.
  std::int64_t framesKept = 0;

  // --- Synchronise themselves ---

  const std::shared_ptr<AudioRingBuffer> ringOwner;
  AudioRingBuffer& ring;
  TransportCells cells;
  RenderGate gate;
  FillWaker waker;
  PositionClock clock;
  PendingSeek seek;
  PendingJoin join;
  /// The TrackDidChange of the first track was posted: from now on those of joins may be.
  std::atomic<bool> isAnnounced{false};

  // --- The engine queue's before the fill thread runs, the fill thread's after ---

  SharedFacts source;                    ///< the track that is decoded, or was last
  std::unique_ptr<SourceReader> reader;  ///< null when its file was closed
};

}  // namespace velorin
