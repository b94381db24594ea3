// The part of a stream that runs on the server's data thread.
#pragma once

#include <pipewire/pipewire.h>
#include <spa/node/io.h>

#include <atomic>
#include <cstdint>
#include <string>

#include "platform/audio/CallbackGate.h"
#include "platform/audio/OutputUnit.h"

namespace velorin {

/// How the graph runs, as its own clock tells it in every cycle.
struct PipeWireCycle {
  std::uint32_t rate = 0;     ///< Hz; 0 before the first cycle
  std::uint32_t quantum = 0;  ///< frames
  std::uint64_t callbacks = 0;
  std::uint64_t xruns = 0;
};

/// process() and setPosition() belong to the data thread, the rest to any other one.
///
/// What process() may do: copy memory, arithmetic, atomics, dequeue and queue the stream's buffers,
/// write to an event descriptor. It neither allocates nor locks nor logs.
class PipeWireRenderer {
 public:
  /// changed: an event source of the main loop, signalled after takeChanges() has news.
  PipeWireRenderer(const StreamFormat& format, std::uint32_t maximumFrames, RenderCallback callback,
                   void* context);

  /// Where to signal news; set before the stream is connected.
  void setSignal(pw_loop* loop, spa_source* changed) noexcept {
    _loop = loop;
    _changed = changed;
  }

  /// Data thread: renders one cycle into the stream's next buffer, silence while stopped.
  void process(pw_stream* stream) noexcept;
  /// Data thread: the graph's clock, null when there is none.
  void setPosition(const spa_io_position* position) noexcept { _position = position; }

  /// From now on cycles are rendered by the callback. Counters start from 0.
  void open() noexcept;
  /// No callback runs after this returned true. False after 2 s with one that does not return.
  bool close();

  PipeWireCycle cycle() const noexcept;
  /// "SCHED_FIFO 88", "normal" …; empty before the first cycle.
  std::string scheduling() const;
  bool isRealtime() const noexcept;

  struct Changes {
    bool xrun = false;
    bool format = false;
  };
  /// What happened since the last call.
  Changes takeChanges() noexcept;

 private:
  std::uint32_t framesFor(const pw_buffer& buffer) const noexcept;
  void render(const spa_buffer& buffer, std::uint32_t frames) noexcept;
  void noteClock() noexcept;
  void noteScheduling() noexcept;

  const std::uint32_t _channels;
  const std::uint32_t _sampleSize;
  const std::uint32_t _maximumFrames;
  const RenderCallback _callback;
  void* const _context;
  pw_loop* _loop = nullptr;
  spa_source* _changed = nullptr;
  CallbackGate _gate;

  // Data thread only.
  const spa_io_position* _position = nullptr;
  std::uint64_t _expectedTick = 0;
  bool _knowsScheduling = false;

  std::atomic<bool> _restarted = true;  // the clock may jump without a loss
  std::atomic<std::uint32_t> _rate = 0;
  std::atomic<std::uint32_t> _quantum = 0;
  std::atomic<std::uint64_t> _callbacks = 0;
  std::atomic<std::uint64_t> _xruns = 0;
  std::atomic<bool> _newXrun = false;
  std::atomic<bool> _newFormat = false;
  std::atomic<int> _policy = -1;
  std::atomic<int> _priority = 0;  // real-time priority, or nice value
};

}  // namespace velorin
