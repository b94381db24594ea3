// Follows the system's default or the listener's choice, and knows which device was lost.
#pragma once

#include <atomic>
#include <optional>
#include <string>

#include "engine/devices/DeviceRules.h"
#include "engine/devices/OutputDevices.h"

namespace velorin {

class Preferences;

/// Owns the mode, which the preferences remember, and the device that is awaited. Under the
/// lifecycle lock; followsSystemDefault() on any thread. Acts on nothing: it tells what to do.
class DeviceFollower {
 public:
  /// All three outlive this. Reads the mode.
  DeviceFollower(AudioHardware& hardware, const OutputDevices& devices, Preferences& preferences);

  bool followsSystemDefault() const noexcept { return _followsSystemDefaultOutput.load(); }

  /// What to start with: the listener's choice if it is present and the default is not followed,
  /// else the system's default.
  AudioDeviceID deviceAtStart();

  /// The two modes; each ends the other. An empty UID is no choice to come back to.
  void followSystemDefault();
  void choose(const std::string& uid);
  /// The default is followed no more, and nothing is chosen: for what is no single device.
  void followNothing();

  /// What is to be done with the devices that are there now. Not the program's own aggregates.
  DeviceDecision decide(bool exclusiveMode) const;

  /// The listener's choice, empty without one.
  std::string chosenUID() const;

  /// The device is gone; when it is back it is used again, unless the default is followed.
  void noteLost(AudioDeviceID device);
  void noteReturned() { _pendingSwitchBackDeviceID.reset(); }

 private:
  void setFollowing(bool on);

  AudioHardware& _hardware;
  const OutputDevices& _devices;
  Preferences& _preferences;
  std::atomic<bool> _followsSystemDefaultOutput{true};
  /// Lives from the loss of a device to its return.
  std::optional<AudioDeviceID> _pendingSwitchBackDeviceID;
};

}  // namespace velorin
