// The ring between the fill thread and the render callback: single producer, single consumer,
// planar, with counters that run free.
//
// Units are frames. `head` counts frames ever written and `tail` frames ever read; a position in
// a buffer is a counter ANDed with capacity - 1. Empty: head - tail = 0. Full: head - tail =
// capacity. Only the producer changes `head`, only the consumer changes `tail`. Two exceptions:
// flush() and cutBackTo() let the producer set `head` back, so that for a moment head - tail can be
// negative, which read() takes as empty; rewind() sets `tail` back while no consumer runs.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "platform/audio/StreamFormat.h"

namespace velorin {

class AudioRingBuffer {
 public:
  /// channels: 1 to kMaxChannels. wantedCapacity: frames, rounded up to a power of two, 1 when
  /// below 1. bytesPerFrame: of one channel, 2 to 4. The memory is zeroed and pinned where the
  /// system allows it. Throws std::bad_alloc.
  AudioRingBuffer(std::uint32_t channels, std::int64_t wantedCapacity, std::uint32_t bytesPerFrame);
  ~AudioRingBuffer();
  AudioRingBuffer(const AudioRingBuffer&) = delete;
  AudioRingBuffer& operator=(const AudioRingBuffer&) = delete;

  // Constant after construction: any thread.
  std::int64_t capacity() const noexcept { return _capacity; }
  std::uint32_t channelCount() const noexcept { return _channelCount; }
  std::uint32_t bytesPerFrame() const noexcept { return _bytesPerFrame; }

  /// Producer only. Copies what fits and returns how many frames that was. Channels that the list
  /// lacks, or whose pointer is null, keep what they held.
  std::uint32_t write(const AudioBufferList& list, std::uint32_t frames) noexcept;

  /// Consumer only. Copies up to `frames` frames, zeroes the rest of each buffer up to `frames`,
  /// returns how many were copied.
  std::uint32_t read(const AudioBufferList& list, std::uint32_t frames) noexcept;

  /// Producer only. Drops what is held.
  void flush() noexcept;

  /// Producer only. Drops what was written from that frame (a count as framesWritten() gives) on.
  /// The consumer must not be about to read it: see RenderGate.
  void cutBackTo(std::int64_t frame) noexcept;

  /// While no consumer runs. Makes the last `frames` frames that were read readable once more. The
  /// producer has left them untouched: it keeps at least as many frames of the ring free.
  void rewind(std::int64_t frames) noexcept;

  /// Any thread. Frames ever written, frames ever read.
  std::int64_t framesWritten() const noexcept { return _head.load(std::memory_order_acquire); }
  std::int64_t framesRead() const noexcept { return _tail.load(std::memory_order_acquire); }

  /// Any thread; a snapshot that may be old by the time it is used. The producer may rely on the
  /// space (it only grows), the consumer on the frames (they only grow, but for a flush).
  std::int64_t framesHeld() const noexcept;
  std::int64_t freeSpace() const noexcept { return _capacity - framesHeld(); }

 private:
  std::byte* at(std::size_t channel, std::int64_t counter) const noexcept;

  const std::int64_t _capacity;
  const std::int64_t _mask;
  const std::uint32_t _channelCount;
  const std::uint32_t _bytesPerFrame;
  std::vector<std::byte*> _buffers;

  // On lines of their own: the producer and the consumer run on different cores.
  alignas(64) std::atomic<std::int64_t> _head{0};
  alignas(64) std::atomic<std::int64_t> _tail{0};
};

}  // namespace velorin
