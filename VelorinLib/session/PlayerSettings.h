// What the listener set for playback: kept in the preferences, told to the engine.
#pragma once

#include <functional>
#include <optional>

#include "records/DeviceSettings.h"
#include "records/PlaybackTypes.h"

namespace velorin {

class AudioEngine;
class Preferences;

/// Main thread. The engine is told on its queue, in the order of the changes.
///
/// The volume is one of two: with VolumeMode::software that of the listener, which is stored; with
/// VolumeMode::hardware that of the device, which is the device's to keep. With VolumeMode::fixed
/// it is 1.
class PlayerSettings {
 public:
  /// Hands a call to the engine's queue.
  using OnEngine = std::function<void(std::function<void(AudioEngine&)>)>;

  /// Reads what is stored and tells the engine.
  PlayerSettings(Preferences& preferences, OnEngine onEngine);

  double volume() const noexcept { return _volume; }
  VolumeMode volumeMode() const noexcept { return static_cast<VolumeMode>(_set.volumeMode); }
  bool gapless() const noexcept { return _set.gaplessPlayback; }
  bool crossfade() const noexcept { return _set.crossfadePlaybackEnabled; }
  double crossfadeDuration() const noexcept { return _set.crossfadeDuration; }
  bool keepsAlbums() const noexcept { return _keepsAlbums; }
  bool exclusiveMode() const noexcept { return _set.exclusiveMode; }
  bool integerMode() const noexcept { return _set.integerMode; }
  bool memoryPlayback() const noexcept { return _set.memoryPlayback; }
  int memoryPlaybackLimitMB() const noexcept { return _set.memoryPlaybackLimitMB; }
  bool forceHighSampleRate() const noexcept { return _set.forceHighSampleRate; }
  SampleRateStrategy sampleRateStrategy() const noexcept {
    return static_cast<SampleRateStrategy>(_set.sampleRateStrategy);
  }
  int resamplingMultiplier() const noexcept { return _set.resamplingMultiplier; }
  double fixedSampleRate() const noexcept { return _set.fixedSampleRate; }
  bool lowLatencyMode() const noexcept { return _set.lowLatencyMode; }

  // Each says whether anything changed.
  bool setVolume(double volume);  ///< held within 0 and 1; what is not finite is ignored
  /// With VolumeMode::hardware `deviceVolume` is shown from then on.
  bool setVolumeMode(VolumeMode mode, std::optional<double> deviceVolume);
  bool setGapless(bool on);
  bool setCrossfade(bool on);
  bool setCrossfadeDuration(double seconds);  ///< what is not above 0 becomes 3
  bool setKeepsAlbums(bool on);
  bool setExclusiveMode(bool on);
  bool setIntegerMode(bool on);
  bool setMemoryPlayback(bool on);
  bool setMemoryPlaybackLimitMB(int mebibytes);  ///< below 1 becomes 256
  bool setForceHighSampleRate(bool on);
  bool setSampleRateStrategy(SampleRateStrategy strategy);
  bool setResamplingMultiplier(int multiplier);  ///< held within 2 and 64
  bool setFixedSampleRate(double rate);          ///< Hz; what is no rate becomes 0, for none
  bool setLowLatencyMode(bool on);

  /// For a fade: told to the engine, but not stored.
  bool fadeVolume(double volume);
  /// The device's own control moved: shown and not stored.
  bool showVolume(double volume);
  /// The engine has applied the profile of another device.
  void takeOver(const DeviceSettings& settings);
  /// The engine gave these up by itself: several devices at once have neither.
  void showSharedFloat();

 private:
  bool setSwitch(bool DeviceSettings::*field, const char* key, bool on,
                 void (AudioEngine::*tell)(bool));
  bool setNumber(int DeviceSettings::*field, const char* key, int value,
                 std::function<void(AudioEngine&)> tell);
  bool setNumber(double DeviceSettings::*field, const char* key, double value,
                 std::function<void(AudioEngine&)> tell);
  void store();
  double listenersVolume() const;

  Preferences& _preferences;
  OnEngine _onEngine;
  double _volume = 1;
  bool _keepsAlbums = false;
  DeviceSettings _set;  ///< its playback fields
};

}  // namespace velorin
