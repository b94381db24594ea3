#include "engine/devices/DeviceFollower.h"

#include "foundation/Log.h"
#include "foundation/Preferences.h"

namespace velorin {
namespace {

constexpr std::string_view kFollowSystemOutputKey = "followSystemOutputDevice";
constexpr std::string_view kLastDeviceUIDKey = "lastSelectedOutputDeviceUID";

}  // namespace

DeviceFollower::DeviceFollower(AudioHardware& hardware, const OutputDevices& devices,
                               Preferences& preferences)
    : _hardware(hardware),
      _devices(devices),
      _preferences(preferences),
      _followsSystemDefaultOutput(preferences.getBool(kFollowSystemOutputKey).value_or(true)) {}

AudioDeviceID DeviceFollower::deviceAtStart() {
  if (!followsSystemDefault()) {
    const std::string uid = chosenUID();
    const AudioDeviceID device = uid.empty() ? kNoDevice : _hardware.deviceForUID(uid);
    if (device != kNoDevice) {
      log::line("💾 Restoring last selected device: {} -> {}", uid, device);
      return device;
    }
  }
  return _hardware.defaultOutputDevice();
}

void DeviceFollower::setFollowing(bool on) {
  _followsSystemDefaultOutput = on;
  _preferences.setBool(kFollowSystemOutputKey, on);
}

void DeviceFollower::followSystemDefault() {
  setFollowing(true);
  _preferences.remove(kLastDeviceUIDKey);
  _pendingSwitchBackDeviceID.reset();
}

void DeviceFollower::choose(const std::string& uid) {
  setFollowing(false);
  if (uid.empty()) {
    _preferences.remove(kLastDeviceUIDKey);
  } else {
    _preferences.setText(kLastDeviceUIDKey, uid);
  }
}

void DeviceFollower::followNothing() {
  setFollowing(false);
}

std::string DeviceFollower::chosenUID() const {
  return _preferences.getText(kLastDeviceUIDKey).value_or(std::string());
}

DeviceDecision DeviceFollower::decide(bool exclusiveMode) const {
  DeviceView view{.current = _devices.current(),
                  .systemDefault = _hardware.defaultOutputDevice(),
                  .awaited = _pendingSwitchBackDeviceID.value_or(kNoDevice),
                  .followsDefault = followsSystemDefault(),
                  .exclusiveMode = exclusiveMode};
  for (const AudioDevice& device : _devices.enumerateOutputDevices()) {
    view.present.push_back(device.id);
  }
  const std::string uid = chosenUID();
  if (!uid.empty()) view.saved = _hardware.deviceForUID(uid);
  return velorin::decide(view);
}

void DeviceFollower::noteLost(AudioDeviceID device) {
  if (device != kNoDevice && !followsSystemDefault()) _pendingSwitchBackDeviceID = device;
}

}  // namespace velorin
