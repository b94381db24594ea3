// A running transfer to a PCM: the render thread and what it works on.
//
// The thread asks for a period when the device has room for one, packs it for the device and
// writes it. Only the callback and the packing run inside a realtime::Scope; outside it the thread
// still allocates nothing and takes no lock, but it makes system calls.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "platform/audio/AudioTypes.h"
#include "platform/audio/OutputUnit.h"
#include "platform/audio/alsa/AlsaEventRelay.h"
#include "platform/audio/alsa/AlsaPcm.h"

namespace velorin {

/// What a stream needs besides the device.
struct AlsaStreamSource {
  StreamFormat format;
  RenderCallback callback = nullptr;
  void* context = nullptr;
  std::uint32_t maximumFrames = 0;  ///< of one callback
};

/// One thread at a time, not the render thread, unless told otherwise.
class AlsaStream {
 public:
  /// The PCM is configured; `grant` is what it was granted. The relay outlives the stream's last
  /// thread, which the shared ownership sees to.
  AlsaStream(std::unique_ptr<AlsaPcm> pcm, const AlsaGrant& grant, const AlsaStreamSource& source,
             std::shared_ptr<AlsaEventRelay> relay);
  /// Stops.
  ~AlsaStream();
  AlsaStream(const AlsaStream&) = delete;
  AlsaStream& operator=(const AlsaStream&) = delete;

  /// Starts the thread and waits until the device runs: -ETIMEDOUT after 2 s, -ENODEV when the
  /// device is lost meanwhile, or its own error.
  AudioStatus start();

  /// No callback runs after this returns. A thread that a device driver holds for more than 2 s is
  /// left behind; it ends, without a callback, when the driver lets go.
  void stop();

  /// For another program that takes the device: deviceLost, the thread ends, and the PCM is closed
  /// when this returns, or after 1 s soon. Any thread.
  void interrupt();

  /// Since start(). Any thread.
  std::uint64_t xruns() const noexcept;
  bool isRealtime() const;
  /// After stop(): frames that were rendered and not played.
  std::uint64_t framesDropped() const noexcept;
  /// See ThreadPriority; empty before the first start().
  std::string scheduling() const;

 private:
  struct Worker;
  std::shared_ptr<Worker> _worker;
};

}  // namespace velorin
