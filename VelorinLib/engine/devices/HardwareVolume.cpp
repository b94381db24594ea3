#include "engine/devices/HardwareVolume.h"

#include <algorithm>
#include <cmath>

namespace velorin {
namespace {

constexpr std::uint32_t kWhole = 0, kLeft = 1, kRight = 2;

}  // namespace

std::optional<float> hardwareVolume(const AudioHardware& hardware, AudioDeviceID device) {
  const auto whole = hardware.volume(device, kWhole);
  return whole ? whole : hardware.volume(device, kLeft);
}

bool setHardwareVolume(AudioHardware& hardware, AudioDeviceID device, float volume) {
  if (std::isnan(volume)) return false;
  const float usable = std::clamp(volume, 0.0f, 1.0f);
  if (hardware.setVolume(device, kWhole, usable).ok()) return true;
  if (!hardware.setVolume(device, kLeft, usable).ok()) return false;
  (void)hardware.setVolume(device, kRight, usable);
  return true;
}

VolumeListener::VolumeListener(AudioHardware& hardware, SerialQueue& queue,
                               std::function<void(AudioDeviceID)> changed)
    : _hardware(hardware), _queue(queue), _changed(std::move(changed)) {}

void VolumeListener::start(AudioDeviceID device) {
  MutexLock hold(_lock);
  _master.reset();
  _channel.reset();
  if (device == kNoDevice) return;
  const auto listen = [&](std::uint32_t element) {
    return _hardware.addListener(AudioProperty::volume, device, element, _queue,
                                 [this, device] { _changed(device); });
  };
  // One is enough to hear of each change once.
  _master = listen(kWhole);
  if (!_master) _channel = listen(kLeft);
}

}  // namespace velorin
