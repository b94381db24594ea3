#include "engine/ring/AudioRingBuffer.h"

#include <sys/mman.h>

#include <bit>
#include <cstdlib>
#include <new>
#include <stdexcept>

namespace velorin {
namespace {

std::int64_t roundedUp(std::int64_t wanted) {
  return static_cast<std::int64_t>(
      std::bit_ceil(static_cast<std::uint64_t>(std::max<std::int64_t>(wanted, 1))));
}

}  // namespace

AudioRingBuffer::AudioRingBuffer(std::uint32_t channels, std::int64_t wantedCapacity,
                                 std::uint32_t bytesPerFrame)
    : _capacity(roundedUp(wantedCapacity)),
      _mask(_capacity - 1),
      _channelCount(channels),
      _bytesPerFrame(bytesPerFrame) {
  if (channels == 0 || channels > kMaxChannels || bytesPerFrame == 0) {
    throw std::invalid_argument("AudioRingBuffer: channels or sample size out of range");
  }
  const std::size_t bytes = static_cast<std::size_t>(_capacity) * bytesPerFrame;
  _buffers.reserve(channels);
  for (std::uint32_t i = 0; i < channels; ++i) {
    // calloc takes large blocks from the kernel already zeroed. Pages are pinned as the producer
    // first writes them; the consumer reads none that was not written.
    auto* block =
        static_cast<std::byte*>(std::calloc(static_cast<std::size_t>(_capacity), bytesPerFrame));
    if (block == nullptr) {
      for (std::byte* held : _buffers) std::free(held);
      throw std::bad_alloc();
    }
    // Unpinned is slower to fault in, not wrong: without the right to lock memory we go on.
    (void)mlock2(block, bytes, MLOCK_ONFAULT);
    _buffers.push_back(block);
  }
}

AudioRingBuffer::~AudioRingBuffer() {
  const std::size_t bytes = static_cast<std::size_t>(_capacity) * _bytesPerFrame;
  for (std::byte* block : _buffers) {
    munlock(block, bytes);
    std::free(block);
  }
}

std::byte* AudioRingBuffer::at(std::size_t channel, std::int64_t counter) const noexcept {
  return _buffers[channel] + static_cast<std::size_t>(counter & _mask) * _bytesPerFrame;
}

std::int64_t AudioRingBuffer::framesHeld() const noexcept {
  // Tail first: read the other way round, a reader could see more frames than ever were there.
  const std::int64_t tail = _tail.load(std::memory_order_acquire);
  const std::int64_t head = _head.load(std::memory_order_acquire);
  return std::clamp<std::int64_t>(head - tail, 0, _capacity);
}

std::uint32_t AudioRingBuffer::write(const AudioBufferList& list, std::uint32_t frames) noexcept {
  const std::int64_t head = _head.load(std::memory_order_acquire);
  const std::int64_t tail = _tail.load(std::memory_order_acquire);
  // A flush that a read overtook leaves the head behind the tail: never more than the capacity.
  const std::int64_t room = _capacity - std::max<std::int64_t>(0, head - tail);
  const std::int64_t n = std::min<std::int64_t>(frames, room);
  if (n < 1) return 0;

  const std::int64_t first = std::min(n, _capacity - (head & _mask));
  const std::uint32_t channels = std::min(list.bufferCount, _channelCount);
  for (std::uint32_t i = 0; i < channels; ++i) {
    const auto* source = list.channel<const std::byte>(i);
    if (source == nullptr) continue;
    const std::size_t firstBytes = static_cast<std::size_t>(first) * _bytesPerFrame;
    std::memcpy(at(i, head), source, firstBytes);
    std::memcpy(at(i, head + first), source + firstBytes,
                static_cast<std::size_t>(n - first) * _bytesPerFrame);
  }
  // Added, not stored: the counters are free-running and only this side moves the head.
  _head.fetch_add(n, std::memory_order_release);
  return static_cast<std::uint32_t>(n);
}

std::uint32_t AudioRingBuffer::read(const AudioBufferList& list, std::uint32_t frames) noexcept {
  const std::int64_t head = _head.load(std::memory_order_acquire);
  const std::int64_t tail = _tail.load(std::memory_order_acquire);
  const std::int64_t available = std::max<std::int64_t>(0, head - tail);
  const std::int64_t n = std::min<std::int64_t>(frames, available);

  const std::int64_t first = std::min(n, _capacity - (tail & _mask));
  const std::uint32_t channels = std::min(list.bufferCount, _channelCount);
  for (std::uint32_t i = 0; i < channels; ++i) {
    auto* target = list.channel<std::byte>(i);
    if (target == nullptr) continue;
    const std::size_t firstBytes = static_cast<std::size_t>(first) * _bytesPerFrame;
    const std::size_t bytes = static_cast<std::size_t>(n) * _bytesPerFrame;
    std::memcpy(target, at(i, tail), firstBytes);
    std::memcpy(target + firstBytes, at(i, tail + first), bytes - firstBytes);
    std::memset(target + bytes, 0, std::size_t{frames} * _bytesPerFrame - bytes);
  }
  if (n >= 1) _tail.fetch_add(n, std::memory_order_release);
  return static_cast<std::uint32_t>(n);
}

void AudioRingBuffer::flush() noexcept {
  _head.store(_tail.load(std::memory_order_acquire), std::memory_order_release);
}

void AudioRingBuffer::cutBackTo(std::int64_t frame) noexcept {
  _head.store(frame, std::memory_order_release);
}

void AudioRingBuffer::rewind(std::int64_t frames) noexcept {
  _tail.fetch_sub(frames, std::memory_order_acq_rel);
}

}  // namespace velorin
