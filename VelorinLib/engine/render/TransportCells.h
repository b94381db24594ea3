// The atomic cells through which the transport, the fill thread and the render callback of one
// playing stream speak to each other. No lock guards them and none is needed.
//
// One object per playing session: a fill thread that is stuck in a slow file keeps its own cells
// and cannot disturb the session that followed.
#pragma once

#include <atomic>
#include <cstdint>

namespace velorin {

struct TransportCells {
  // --- End of the stream ---

  /// The fill side has no more data, unless there is a new wish for a next track.
  std::atomic<bool> eofReached{false};
  /// Version of the wish for a next track (NextTrack) that what is in the ring answers.
  std::atomic<std::uint64_t> answeredWish{0};
  /// Frames of silence rendered since the ring ran short after that: tells the fill thread when
  /// the device has played out what it still held. Render adds, fill resets.
  std::atomic<std::int64_t> framesAfterEnd{0};

  /// The fill thread waits for the joined track to be heard, or for a track to fade into, and
  /// writes nothing until then.
  std::atomic<bool> fillStalled{false};
  /// The fill thread has ended with its track.
  std::atomic<bool> isOver{false};

  // --- Output, as started ---

  /// The device's I/O buffer in frames, 0 until the output started.
  std::atomic<std::uint32_t> ioBufferFrameSize{0};
  /// Frames between a render call and the jack: buffer, device latency and safety offset.
  std::atomic<std::int64_t> playbackLatencyFrames{0};
  /// The unit is running, so the ring empties by itself. A change is followed by a signal to the
  /// fill thread.
  std::atomic<bool> rendering{false};

  std::atomic<bool> fillThreadShouldRun{false};
};

}  // namespace velorin
