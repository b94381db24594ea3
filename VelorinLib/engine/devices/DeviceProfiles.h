// The settings that belong to an output device: saved when it is left, brought in when it comes
// into use, and which device those in force belong to.
#pragma once

#include <optional>
#include <string>

#include "dsp/settings/DeviceSettingsManager.h"

namespace velorin {

class DSPEffects;
class Preferences;

/// Under the lifecycle lock. The caller brings and applies the playback fields, this the effects'
/// and the preferences. A device without a UID has no profile, nor have the program's own
/// aggregates, whose UIDs are new each time.
class DeviceProfiles {
 public:
  /// Both outlive this.
  DeviceProfiles(Preferences& preferences, DSPEffects& effects);

  /// Whose settings are in force; empty for a device without a UID, and for none.
  const std::string& uidInForce() const noexcept { return _uidInForce; }

  /// At the start, with the engine's fields as they were stored. What is set for all devices is
  /// what was set for the device that was in use last; where another one is found its profile takes
  /// the place of that and is returned. Nothing when what is set stays.
  std::optional<DeviceSettings> start(DeviceSettings stored, const std::string& uid);

  /// The effects' fields are filled in, and all goes into the profile of the device in force.
  void save(DeviceSettings playback);

  /// The device comes into use: its profile, or what a device has that was never used.
  DeviceSettings enter(const std::string& uid);
  /// It comes into use with these playback fields and the effects as they are.
  DeviceSettings enterAsSet(DeviceSettings playback, const std::string& uid);

 private:
  void setInForce(const std::string& uid);

  Preferences& _preferences;
  DSPEffects& _effects;
  DeviceSettingsManager _stored;
  std::string _uidInForce;
};

}  // namespace velorin
