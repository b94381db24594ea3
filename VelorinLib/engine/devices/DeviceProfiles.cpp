#include "engine/devices/DeviceProfiles.h"

#include "dsp/presets/EQPresetManager.h"
#include "dsp/settings/EffectSettings.h"
#include "engine/devices/AggregateDeviceManager.h"
#include "engine/devices/PlaybackProfile.h"
#include "foundation/Preferences.h"

namespace velorin {
namespace {

/// The device that the settings for all devices were last in force on.
constexpr std::string_view kUIDInForceKey = "outputDeviceUIDInUse";

}  // namespace

DeviceProfiles::DeviceProfiles(Preferences& preferences, DSPEffects& effects)
    : _preferences(preferences), _effects(effects), _stored(preferences) {}

std::optional<DeviceSettings> DeviceProfiles::start(DeviceSettings stored, const std::string& uid) {
  loadLatePlayback(_preferences, stored);
  captureEffects(_effects, _preferences, stored);
  _stored.migrateIfNeeded(stored, uid);

  const auto last = _preferences.getText(kUIDInForceKey);
  auto profile = last && *last != uid ? _stored.load(uid) : std::nullopt;
  if (!uid.empty()) setInForce(uid);
  if (!profile) return std::nullopt;
  applyEffects(*profile, _effects, _preferences, &EQPresetManager::shared());
  storePlayback(*profile, _preferences);
  return profile;
}

void DeviceProfiles::save(DeviceSettings playback) {
  if (_uidInForce.empty() || isOwnAggregate(_uidInForce)) return;
  captureEffects(_effects, _preferences, playback);
  _stored.save(playback, _uidInForce);
}

DeviceSettings DeviceProfiles::enter(const std::string& uid) {
  DeviceSettings settings = _stored.load(uid).value_or(DeviceSettings{});
  applyEffects(settings, _effects, _preferences, &EQPresetManager::shared());
  storePlayback(settings, _preferences);
  setInForce(uid);
  return settings;
}

DeviceSettings DeviceProfiles::enterAsSet(DeviceSettings playback, const std::string& uid) {
  captureEffects(_effects, _preferences, playback);
  storePlayback(playback, _preferences);
  setInForce(uid);
  return playback;
}

void DeviceProfiles::setInForce(const std::string& uid) {
  _uidInForce = uid;
  _preferences.setText(kUIDInForceKey, uid);
}

}  // namespace velorin
