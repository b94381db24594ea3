// The atomic cells through which the transport, the fill thread and the render callback of one
// playing track speak to each other. No lock guards them and none is needed.
//
// One object per playing session: a fill thread that is stuck in a slow file keeps its own cells
// and cannot disturb the session that followed.
#pragma once

#include <atomic>
#include <cstdint>

namespace velorin {

struct TransportCells {
  /// "No seek is wanted."
  static constexpr std::int64_t kNoSeek = -1;

  // --- Position ---

  /// Frames the render thread took since the last reset. Render adds, the others reset.
  std::atomic<std::int64_t> framesReadFromBuffer{0};
  /// Frames of the file before that reset, in file frames.
  std::atomic<std::int64_t> seekFrameOffset{0};
  /// Microseconds from the track's own start, or kNoSeek. Transport sets, fill takes.
  std::atomic<std::int64_t> pendingSeekUsec{kNoSeek};
  /// Bounds of a CUE track in file frames; 0 for none.
  std::atomic<std::int64_t> cueStartOffsetFrames{0};
  std::atomic<std::int64_t> cueEndFrame{0};

  // --- End of the stream ---

  /// The fill side has no more data.
  std::atomic<bool> eofReached{false};
  /// Frames of silence rendered since the ring ran short after that: tells the fill thread when
  /// the device has played out what it still held. Render adds, fill resets.
  std::atomic<std::int64_t> framesAfterEnd{0};

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
