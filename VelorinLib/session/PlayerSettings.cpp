#include "session/PlayerSettings.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "engine/AudioEngine.h"
#include "engine/joins/JoinSettings.h"
#include "foundation/Preferences.h"

namespace velorin {
namespace {

constexpr const char* kVolume = "volume";
constexpr const char* kGapless = "gaplessPlayback";
constexpr const char* kCrossfade = "crossfadePlayback";
constexpr const char* kCrossfadeDuration = "crossfadeDuration";
constexpr const char* kKeepsAlbums = "crossfadeKeepsAlbums";
constexpr const char* kExclusive = "exclusiveMode";
constexpr const char* kInteger = "integerMode";

double usableDuration(double seconds) {
  return std::isfinite(seconds) && seconds > 0 ? seconds : JoinSettings::kDefaultCrossfadeSeconds;
}

double usableVolume(std::optional<double> volume) {
  return volume && std::isfinite(*volume) ? std::clamp(*volume, 0.0, 1.0) : 1.0;
}

}  // namespace

PlayerSettings::PlayerSettings(Preferences& preferences, OnEngine onEngine)
    : _preferences(preferences),
      _onEngine(std::move(onEngine)),
      _volume(usableVolume(preferences.getDouble(kVolume))),
      _gapless(preferences.getBool(kGapless).value_or(true)),
      _crossfade(preferences.getBool(kCrossfade).value_or(false)),
      _crossfadeDuration(usableDuration(preferences.getDouble(kCrossfadeDuration).value_or(0))),
      _keepsAlbums(preferences.getBool(kKeepsAlbums).value_or(false)),
      _exclusiveMode(preferences.getBool(kExclusive).value_or(false)),
      _integerMode(preferences.getBool(kInteger).value_or(false)) {
  _onEngine([volume = _volume, gapless = _gapless, crossfade = _crossfade,
             seconds = _crossfadeDuration, exclusive = _exclusiveMode,
             integer = _integerMode](AudioEngine& engine) {
    engine.setVolume(static_cast<float>(volume));
    engine.setGaplessEnabled(gapless);
    engine.setCrossfadePlaybackEnabled(crossfade);
    engine.setCrossfadeDuration(seconds);
    engine.setIntegerMode(integer);
    if (exclusive) engine.setExclusiveMode(true);
  });
}

bool PlayerSettings::setVolume(double volume) {
  if (!fadeVolume(volume)) return false;
  _preferences.setDouble(kVolume, _volume);
  return true;
}

bool PlayerSettings::fadeVolume(double volume) {
  if (!showVolume(volume)) return false;
  _onEngine([set = static_cast<float>(_volume)](AudioEngine& engine) { engine.setVolume(set); });
  return true;
}

bool PlayerSettings::showVolume(double volume) {
  if (!std::isfinite(volume)) return false;
  const double usable = std::clamp(volume, 0.0, 1.0);
  return std::exchange(_volume, usable) != usable;
}

bool PlayerSettings::setSwitch(bool& field, const char* key, bool on,
                               void (AudioEngine::*tell)(bool)) {
  if (field == on) return false;
  field = on;
  _preferences.setBool(key, on);
  if (tell != nullptr) _onEngine([tell, on](AudioEngine& engine) { (engine.*tell)(on); });
  return true;
}

bool PlayerSettings::setGapless(bool on) {
  return setSwitch(_gapless, kGapless, on, &AudioEngine::setGaplessEnabled);
}
bool PlayerSettings::setCrossfade(bool on) {
  return setSwitch(_crossfade, kCrossfade, on, &AudioEngine::setCrossfadePlaybackEnabled);
}
bool PlayerSettings::setKeepsAlbums(bool on) {
  return setSwitch(_keepsAlbums, kKeepsAlbums, on, nullptr);
}
bool PlayerSettings::setExclusiveMode(bool on) {
  return setSwitch(_exclusiveMode, kExclusive, on, &AudioEngine::setExclusiveMode);
}
bool PlayerSettings::setIntegerMode(bool on) {
  return setSwitch(_integerMode, kInteger, on, &AudioEngine::setIntegerMode);
}

bool PlayerSettings::setCrossfadeDuration(double seconds) {
  const double usable = usableDuration(seconds);
  if (usable == _crossfadeDuration) return false;
  _crossfadeDuration = usable;
  _preferences.setDouble(kCrossfadeDuration, usable);
  _onEngine([usable](AudioEngine& engine) { engine.setCrossfadeDuration(usable); });
  return true;
}

}  // namespace velorin
