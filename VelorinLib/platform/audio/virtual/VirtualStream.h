// What runs between a unit's initialize() and uninitialize(): buffers, callback, clock.
#pragma once

#include <memory>
#include <thread>

#include "foundation/Mutex.h"
#include "platform/audio/virtual/VirtualDevice.h"

namespace velorin {

/// start(), stop() and close() belong to the unit's owner; render(), raise() and lose() may come
/// from any other thread at the same time.
class VirtualStream {
 public:
  struct Setup {
    std::shared_ptr<VirtualDevice> device;
    StreamFormat format;
    std::uint32_t maximumFrames = 0;
    RenderCallback callback = nullptr;
    void* context = nullptr;
    std::function<void(OutputEvent)> eventHandler;
  };
  using CopyTo = std::function<void(const AudioBufferList&, std::uint32_t, std::uint32_t)>;

  explicit VirtualStream(Setup setup);
  ~VirtualStream();
  VirtualStream(const VirtualStream&) = delete;
  VirtualStream& operator=(const VirtualStream&) = delete;

  /// False when the device is gone. Nothing to do when running already.
  bool start();
  /// No callback runs after this returns.
  void stop();
  bool isRunning() const;

  /// Renders so many frames on the calling thread, in slices of at most the maximum; false when
  /// not started.
  bool render(std::uint32_t frames, const CopyTo& copyTo = {});

  /// Calls the unit's event handler, unless close() was called.
  void raise(OutputEvent event);

  /// The device is gone: callbacks end for good, then deviceLost is raised, once.
  void lose();

  /// After stop(): ends the recording. No event reaches the handler after this returns.
  void close();

  /// Buffers that came late by more than their own length and were not made up for.
  std::uint64_t xruns() const noexcept { return _xruns; }

  /// After stop(): as the device's description says, at most what was rendered since start().
  std::uint64_t framesDropped() const noexcept {
    return std::min<std::uint64_t>(_framesSinceStart, _setup.device->fixed().framesDroppedOnStop);
  }

 private:
  void runPaced();
  void runUnpaced();
  /// Waits; false as soon as the stream is not running.
  bool waitUntil(std::chrono::steady_clock::time_point deadline);
  void halt();
  void renderSlice(std::uint32_t frames, const CopyTo& copyTo) REQUIRES(_renderMutex);

  Setup _setup;
  const VirtualPullGate _pullGate;
  const std::shared_ptr<VirtualRecorder> _recorder;
  std::thread _clock;
  std::atomic<std::uint64_t> _xruns = 0;
  std::atomic<std::uint64_t> _framesSinceStart = 0;

  // Held around every callback, so that stop() is a barrier. Taken before _stateMutex.
  Mutex _renderMutex;
  PlanarBuffers _buffers GUARDED_BY(_renderMutex);

  mutable Mutex _stateMutex;
  ConditionVariable _wake;
  bool _running GUARDED_BY(_stateMutex) = false;
  bool _lost GUARDED_BY(_stateMutex) = false;

  // Held around the handler, so that close() is a barrier.
  Mutex _eventMutex;
  bool _closed GUARDED_BY(_eventMutex) = false;
};

}  // namespace velorin
