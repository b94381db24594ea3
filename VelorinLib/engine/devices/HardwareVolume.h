// A device's own volume control, and hearing of its changes.
#pragma once

#include <functional>
#include <optional>

#include "foundation/Mutex.h"
#include "platform/audio/AudioHardware.h"

namespace velorin {

// Any thread but the render thread. The device as a whole, or its left and right where it has no
// control as a whole.

/// 0 to 1; nothing where the device has no control.
std::optional<float> hardwareVolume(const AudioHardware& hardware, AudioDeviceID device);
/// Limited to 0 to 1. False where it could not be set, and for what is not a number.
bool setHardwareVolume(AudioHardware& hardware, AudioDeviceID device, float volume);

/// Listens to the volume of one device at a time. Any thread but the render thread.
class VolumeListener {
 public:
  /// `changed` is called on the queue with the device's id. Hardware and queue outlive this.
  VolumeListener(AudioHardware& hardware, SerialQueue& queue,
                 std::function<void(AudioDeviceID)> changed);

  /// To this device from now on, and to no other; kNoDevice only stops.
  void start(AudioDeviceID device);
  void stop() { start(kNoDevice); }

 private:
  AudioHardware& _hardware;
  SerialQueue& _queue;
  const std::function<void(AudioDeviceID)> _changed;

  Mutex _lock;
  AudioHardware::Listener _master GUARDED_BY(_lock);
  AudioHardware::Listener _channel GUARDED_BY(_lock);
};

}  // namespace velorin
