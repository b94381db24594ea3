// One stream of samples to one device, and the callback that renders it.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>

#include "platform/audio/AudioTypes.h"
#include "platform/audio/StreamFormat.h"

namespace velorin {

/// Fills `list` with `frames` frames of the unit's input format. Runs inside a realtime::Scope
/// (see foundation/Realtime.h for what that forbids), on the backend's render thread, one call at
/// a time. Returns how many of the frames, from the first on, carry programme; the callback has
/// zeroed the rest. A recording device uses that to know silence that was rendered from silence
/// that was missing.
using RenderCallback = std::uint32_t (*)(void* context, AudioBufferList& list,
                                         std::uint32_t frames) noexcept;

/// What can happen to a running unit.
enum class OutputEvent {
  deviceLost,    ///< the device is gone or its server ended; no more callbacks come
  xrun,          ///< the device ran dry or was suspended and was restarted; playing goes on
  formatChanged  ///< rate or buffer were changed from outside; report() has the new values
};

/// Life: made by AudioHardware → set… → initialize → start ⇄ stop → uninitialize → destroyed.
/// All operations are called by one thread at a time, never the render thread. Destruction stops
/// and uninitializes what is still running.
class OutputUnit {
 public:
  virtual ~OutputUnit() = default;

  /// Binds the unit to a device. Before initialize().
  virtual AudioStatus setDevice(AudioDeviceID device) = 0;

  /// The most frames one callback may ask for. Before initialize().
  virtual AudioStatus setMaximumFramesPerSlice(std::uint32_t frames) = 0;

  /// The device side's format as far as it is known before start; for the log.
  virtual std::optional<StreamFormat> deviceFormat() const = 0;

  /// What the callback delivers: planar, float or signed integer. Refused (-EINVAL) when the
  /// device cannot take it without losing bits of an integer format, or not at all. A sound
  /// server, which carries 24 bits of whatever it is given, also takes 32 and tells the loss in
  /// report(). Before initialize().
  virtual AudioStatus setInputFormat(const StreamFormat& format) = 0;

  /// Before initialize().
  virtual AudioStatus setRenderCallback(RenderCallback callback, void* context) = 0;

  /// Called off the render thread, on a thread of the backend; must return soon and must not
  /// call the unit. Before initialize().
  virtual void setEventHandler(std::function<void(OutputEvent)> handler) = 0;

  /// Opens the device with what was set. No callback yet.
  virtual AudioStatus initialize() = 0;
  virtual void uninitialize() = 0;

  /// Callbacks begin. Bounded: an error when the device does not start within 2 s.
  virtual AudioStatus start() = 0;

  /// Callbacks end: none runs after this returns. Bounded like start(). What the device still
  /// holds is dropped.
  virtual void stop() = 0;

  /// After stop(): how many of the last frames rendered were dropped unheard, as nearly as the
  /// device can tell; 0 when it plays out what it holds, or cannot tell.
  virtual std::uint64_t framesDropped() const { return 0; }

  /// What is really going on. Any time after initialize().
  virtual OutputReport report() const = 0;
};

}  // namespace velorin
