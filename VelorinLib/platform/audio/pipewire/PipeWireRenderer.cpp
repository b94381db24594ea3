#include "platform/audio/pipewire/PipeWireRenderer.h"

#include <fmt/format.h>
#include <sched.h>
#include <spa/buffer/buffer.h>
#include <sys/resource.h>

#include <algorithm>
#include <cstring>

#include "foundation/Realtime.h"

namespace velorin {
namespace {

constexpr std::chrono::milliseconds kCloseTimeout{2000};

}  // namespace

PipeWireRenderer::PipeWireRenderer(const StreamFormat& format, std::uint32_t maximumFrames,
                                   RenderCallback callback, void* context)
    : _channels(format.channelsPerFrame),
      _sampleSize(format.bytesPerFrame),
      _maximumFrames(maximumFrames),
      _callback(callback),
      _context(context) {}

void PipeWireRenderer::process(pw_stream* stream) noexcept {
  pw_buffer* buffer = pw_stream_dequeue_buffer(stream);
  if (!buffer) return;
  const std::uint32_t frames = framesFor(*buffer);
  if (_gate.enter()) {
    if (!_knowsScheduling) noteScheduling();
    noteClock();
    render(*buffer->buffer, frames);
    _callbacks.fetch_add(1, std::memory_order_release);
    _gate.leave();
  } else {
    for (std::uint32_t i = 0; i < buffer->buffer->n_datas; ++i) {
      if (void* data = buffer->buffer->datas[i].data) std::memset(data, 0, frames * _sampleSize);
    }
  }
  for (std::uint32_t i = 0; i < buffer->buffer->n_datas; ++i) {
    spa_chunk& chunk = *buffer->buffer->datas[i].chunk;
    chunk.offset = 0;
    chunk.stride = static_cast<std::int32_t>(_sampleSize);
    chunk.size = frames * _sampleSize;
  }
  buffer->size = frames;
  pw_stream_queue_buffer(stream, buffer);
}

std::uint32_t PipeWireRenderer::framesFor(const pw_buffer& buffer) const noexcept {
  const spa_buffer& planes = *buffer.buffer;
  if (planes.n_datas < _channels) return 0;
  std::uint32_t room = planes.datas[0].maxsize / _sampleSize;
  for (std::uint32_t i = 0; i < planes.n_datas; ++i) {
    if (!planes.datas[i].data) return 0;
    room = std::min(room, planes.datas[i].maxsize / _sampleSize);
  }
  // Servers older than 0.3.49 do not say how much they need; a quantum is what they consume.
  std::uint64_t wanted = buffer.requested;
  if (wanted == 0) wanted = _position ? _position->clock.duration : room;
  return static_cast<std::uint32_t>(std::min<std::uint64_t>(wanted, room));
}

void PipeWireRenderer::render(const spa_buffer& buffer, std::uint32_t frames) noexcept {
  realtime::Scope scope;
  for (std::uint32_t done = 0; done < frames;) {
    const std::uint32_t slice = std::min(frames - done, _maximumFrames);
    AudioBufferList list;
    list.bufferCount = _channels;
    for (std::uint32_t i = 0; i < _channels; ++i) {
      auto* plane = static_cast<std::byte*>(buffer.datas[i].data);
      list.buffers[i] = {slice * _sampleSize, plane + std::size_t{done} * _sampleSize};
    }
    _callback(_context, list, slice);
    done += slice;
  }
}

void PipeWireRenderer::noteClock() noexcept {
  if (!_position) return;
  const spa_io_clock& clock = _position->clock;
  const std::uint32_t quantum = static_cast<std::uint32_t>(clock.duration);
  const bool isFirst = _restarted.exchange(false, std::memory_order_relaxed);
  const bool isOther = clock.rate.denom != _rate.load(std::memory_order_relaxed) ||
                       quantum != _quantum.load(std::memory_order_relaxed);
  _rate.store(clock.rate.denom, std::memory_order_relaxed);
  _quantum.store(quantum, std::memory_order_relaxed);
  bool hasNews = false;
  if (!isFirst && isOther) {
    _newFormat.store(true, std::memory_order_relaxed);
    hasNews = true;
  } else if (!isFirst && clock.position != _expectedTick) {
    // The device went through cycles that this stream was not part of.
    _xruns.fetch_add(1, std::memory_order_relaxed);
    _newXrun.store(true, std::memory_order_relaxed);
    hasNews = true;
  }
  _expectedTick = clock.position + clock.duration;
  if (hasNews && _changed) pw_loop_signal_event(_loop, _changed);
}

void PipeWireRenderer::noteScheduling() noexcept {
  _knowsScheduling = true;
  sched_param parameters{};
  sched_getparam(0, &parameters);
  const int policy = sched_getscheduler(0) & ~SCHED_RESET_ON_FORK;
  const bool isRealtimePolicy = policy == SCHED_FIFO || policy == SCHED_RR;
  _priority.store(isRealtimePolicy ? parameters.sched_priority : getpriority(PRIO_PROCESS, 0));
  _policy.store(policy);
}

void PipeWireRenderer::open() noexcept {
  _restarted = true;
  _callbacks = 0;
  _xruns = 0;
  _newXrun = false;
  _newFormat = false;
  _gate.open();
}

bool PipeWireRenderer::close() {
  return _gate.close(kCloseTimeout);
}

PipeWireCycle PipeWireRenderer::cycle() const noexcept {
  return {_rate.load(), _quantum.load(), _callbacks.load(), _xruns.load()};
}

bool PipeWireRenderer::isRealtime() const noexcept {
  const int policy = _policy.load();
  return policy == SCHED_FIFO || policy == SCHED_RR;
}

std::string PipeWireRenderer::scheduling() const {
  const int policy = _policy.load();
  const int priority = _priority.load();
  if (policy < 0) return {};
  if (policy == SCHED_FIFO) return fmt::format("SCHED_FIFO {}", priority);
  if (policy == SCHED_RR) return fmt::format("SCHED_RR {}", priority);
  return priority == 0 ? "normal" : fmt::format("nice {}", priority);
}

PipeWireRenderer::Changes PipeWireRenderer::takeChanges() noexcept {
  return {_newXrun.exchange(false), _newFormat.exchange(false)};
}

}  // namespace velorin
