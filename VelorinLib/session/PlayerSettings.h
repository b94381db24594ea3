// What the listener set for the sound: kept in the preferences, told to the engine.
#pragma once

#include <functional>

namespace velorin {

class AudioEngine;
class Preferences;

/// Main thread. The engine is told on its queue, in the order of the changes.
class PlayerSettings {
 public:
  /// Hands a call to the engine's queue.
  using OnEngine = std::function<void(std::function<void(AudioEngine&)>)>;

  /// Reads what is stored and tells the engine.
  PlayerSettings(Preferences& preferences, OnEngine onEngine);

  double volume() const noexcept { return _volume; }
  bool gapless() const noexcept { return _gapless; }
  bool crossfade() const noexcept { return _crossfade; }
  double crossfadeDuration() const noexcept { return _crossfadeDuration; }
  bool keepsAlbums() const noexcept { return _keepsAlbums; }
  bool exclusiveMode() const noexcept { return _exclusiveMode; }
  bool integerMode() const noexcept { return _integerMode; }

  // Each says whether anything changed.
  bool setVolume(double volume);  ///< held within 0 and 1; what is not finite is ignored
  bool setGapless(bool on);
  bool setCrossfade(bool on);
  bool setCrossfadeDuration(double seconds);  ///< what is not above 0 becomes 3
  bool setKeepsAlbums(bool on);
  bool setExclusiveMode(bool on);
  bool setIntegerMode(bool on);

  /// For a fade: told to the engine, but not stored.
  bool fadeVolume(double volume);
  /// The device's own control moved: shown and not stored.
  bool showVolume(double volume);

 private:
  bool setSwitch(bool& field, const char* key, bool on, void (AudioEngine::*tell)(bool));

  Preferences& _preferences;
  OnEngine _onEngine;
  double _volume = 1;
  bool _gapless = true;
  bool _crossfade = false;
  double _crossfadeDuration = 3;
  bool _keepsAlbums = false;
  bool _exclusiveMode = false;
  bool _integerMode = false;
};

}  // namespace velorin
