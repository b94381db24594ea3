// One output unit, from the choice of the device to its release.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <optional>

#include "engine/devices/OutputDevices.h"
#include "engine/render/RenderPath.h"
#include "platform/audio/AudioHardware.h"
#include "platform/audio/OutputUnit.h"
#include "platform/audio/StreamFormat.h"

namespace velorin {

/// Engine queue, under the lifecycle lock, unless a member says otherwise. The order of calls:
/// prepare → [useFormat] → begin → pause ⇄ resume, restart → end.
class OutputSession {
 public:
  OutputSession(AudioHardware& hardware, OutputDevices& devices);
  ~OutputSession();

  enum class Prepared {
    ready,          ///< unit made, bound and told the format
    formatRefused,  ///< as ready, but the device does not take the format: choose another
    failed,         ///< no unit; the log has said why
  };

  /// Makes a unit on the current device, at the device's largest buffer, and offers it the
  /// format. `onEvent` is called on a backend's thread.
  Prepared prepare(const StreamFormat& clientFormat, std::function<void(OutputEvent)> onEvent);

  /// After formatRefused: offers another format and goes on, whether it is taken or not; the
  /// device decides when it is opened.
  void useFormat(const StreamFormat& clientFormat);

  /// What prepare() learnt.
  std::uint32_t ioBufferFrameSize() const noexcept { return _ioBufferFrameSize; }
  std::int64_t playbackLatencyFrames() const noexcept { return _playbackLatencyFrames; }
  double bufferDeadlineUs() const noexcept { return _bufferDeadlineUs; }

  /// Opens the device and starts it with the render path. False: the log has said why and no unit
  /// is left.
  bool begin(std::unique_ptr<RenderPath> renderPath, double clientRate);

  /// For a new stream of the same format on the unit as it is: stops, and starts it with another
  /// render path. A failure leaves the unit stopped.
  AudioStatus restart(std::unique_ptr<RenderPath> renderPath, double clientRate);

  bool isOpen() const noexcept { return _unit != nullptr; }
  /// Returns how many of the frames rendered last were dropped unheard.
  std::uint64_t pause();
  AudioStatus resume();
  /// Stops and releases the unit: no render call runs after this.
  void end();

  /// The device runs at the client rate, read back after the start.
  bool deviceRateVerified() const noexcept { return _deviceRateVerified; }
  /// Reads the rate back and says so when it is not the client's.
  void verifyRate(double clientRate);
  OutputReport report() const;

 private:
  static std::uint32_t render(void* context, AudioBufferList& list, std::uint32_t frames) noexcept;
  void use(std::unique_ptr<RenderPath> renderPath);
  bool bindToDevice();
  void configureBuffer(double clientRate);
  void logDeviceFormat();

  AudioHardware& _hardware;
  OutputDevices& _devices;
  std::unique_ptr<RenderPath> _renderPath;  ///< declared before the unit: outlives it
  /// What the unit's callback goes to. Changed only while the unit stands still.
  std::atomic<RenderPath*> _rendering{nullptr};
  std::unique_ptr<OutputUnit> _unit;
  std::uint32_t _ioBufferFrameSize = 0;
  std::int64_t _playbackLatencyFrames = 0;
  double _bufferDeadlineUs = 0;
  bool _deviceRateVerified = false;
};

}  // namespace velorin
