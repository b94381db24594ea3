#include "session/PlayerSettings.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "dsp/DSPEffects.h"
#include "engine/AudioEngine.h"
#include "engine/EngineSettings.h"
#include "engine/joins/JoinSettings.h"
#include "foundation/Preferences.h"

namespace velorin {
namespace {

constexpr const char* kVolume = "volume";
constexpr const char* kVolumeMode = "volumeMode";
constexpr const char* kGapless = "gaplessPlayback";
constexpr const char* kCrossfade = "crossfadePlayback";
constexpr const char* kCrossfadeDuration = "crossfadeDuration";
constexpr const char* kKeepsAlbums = "crossfadeKeepsAlbums";
constexpr const char* kExclusive = "exclusiveMode";
constexpr const char* kInteger = "integerMode";
constexpr const char* kMemory = "memoryPlayback";
constexpr const char* kMemoryLimit = "memoryPlaybackLimitMB";
constexpr const char* kForceHigh = "forceHighSampleRate";
constexpr const char* kStrategy = "sampleRateStrategy";
constexpr const char* kMultiplier = "resamplingMultiplier";
constexpr const char* kFixedRate = "fixedSampleRate";
constexpr const char* kLowLatency = "lowLatencyMode";

constexpr int kDefaultMemoryLimit = 256;
constexpr int kSmallestMultiplier = 2;
constexpr int kLargestMultiplier = 64;

double usableDuration(double seconds) {
  return std::isfinite(seconds) && seconds > 0 ? seconds : JoinSettings::kDefaultCrossfadeSeconds;
}

double usableVolume(std::optional<double> volume) {
  return volume && std::isfinite(*volume) ? std::clamp(*volume, 0.0, 1.0) : 1.0;
}

int usableLimit(std::int64_t mebibytes) {
  constexpr std::int64_t kMost = std::numeric_limits<int>::max();
  return mebibytes < 1 ? kDefaultMemoryLimit : static_cast<int>(std::min(mebibytes, kMost));
}

int usableMultiplier(int multiplier) {
  return std::clamp(multiplier, kSmallestMultiplier, kLargestMultiplier);
}

double usableRate(double rate) {
  return std::isfinite(rate) && rate > 0 ? rate : 0;
}

template <class E>
int rawOf(E value) {
  return static_cast<int>(value);
}

}  // namespace

PlayerSettings::PlayerSettings(Preferences& preferences, OnEngine onEngine)
    : _preferences(preferences),
      _onEngine(std::move(onEngine)),
      _keepsAlbums(preferences.getBool(kKeepsAlbums).value_or(false)) {
  const auto isOn = [&](const char* key) { return preferences.getBool(key).value_or(false); };
  _set.gaplessPlayback = preferences.getBool(kGapless).value_or(true);
  _set.crossfadePlaybackEnabled = isOn(kCrossfade);
  _set.crossfadeDuration = usableDuration(preferences.getDouble(kCrossfadeDuration).value_or(0));
  _set.exclusiveMode = isOn(kExclusive);
  _set.memoryPlayback = isOn(kMemory);
  _set.memoryPlaybackLimitMB = usableLimit(preferences.getInt(kMemoryLimit).value_or(0));
  const auto mode = fromRaw<VolumeMode>(preferences.getInt(kVolumeMode).value_or(0));
  _set.volumeMode = rawOf(mode.value_or(VolumeMode::software));
  // The engine has read these by itself.
  const EngineSettings engines = EngineSettings::load(preferences);
  _set.integerMode = engines.integerMode;
  _set.forceHighSampleRate = engines.rates.forceHighRate;
  _set.sampleRateStrategy = rawOf(engines.rates.strategy);
  _set.resamplingMultiplier = engines.rates.multiplier;
  _set.fixedSampleRate = usableRate(engines.rates.fixedRate);
  _set.lowLatencyMode = engines.lowLatencyMode;

  if (volumeMode() == VolumeMode::software) _volume = listenersVolume();
  _onEngine([volume = _volume, set = _set](AudioEngine& engine) {
    engine.setVolumeMode(static_cast<VolumeMode>(set.volumeMode));
    engine.setVolume(static_cast<float>(volume));
    engine.effects().loudnessCompensation.setVolume(volume);
    engine.setGaplessEnabled(set.gaplessPlayback);
    engine.setCrossfadePlaybackEnabled(set.crossfadePlaybackEnabled);
    engine.setCrossfadeDuration(set.crossfadeDuration);
    engine.setMemoryPlayback(set.memoryPlayback);
    engine.setMemoryPlaybackLimitMB(set.memoryPlaybackLimitMB);
    if (set.exclusiveMode) engine.setExclusiveMode(true);
  });
}

double PlayerSettings::listenersVolume() const {
  return usableVolume(_preferences.getDouble(kVolume));
}

// --- Volume ---

bool PlayerSettings::setVolume(double volume) {
  if (!fadeVolume(volume)) return false;
  if (volumeMode() == VolumeMode::software) _preferences.setDouble(kVolume, _volume);
  return true;
}

bool PlayerSettings::fadeVolume(double volume) {
  if (volumeMode() == VolumeMode::fixed || !showVolume(volume)) return false;
  const bool isOfDevice = volumeMode() == VolumeMode::hardware;
  _onEngine([isOfDevice, set = static_cast<float>(_volume)](AudioEngine& engine) {
    if (isOfDevice) {
      engine.setHardwareVolume(engine.currentDevice(), set);
    } else {
      engine.setVolume(set);
    }
  });
  return true;
}

bool PlayerSettings::showVolume(double volume) {
  if (!std::isfinite(volume)) return false;
  const double usable = std::clamp(volume, 0.0, 1.0);
  if (std::exchange(_volume, usable) == usable) return false;
  _onEngine(
      [usable](AudioEngine& engine) { engine.effects().loudnessCompensation.setVolume(usable); });
  return true;
}

bool PlayerSettings::setVolumeMode(VolumeMode mode, std::optional<double> deviceVolume) {
  if (mode == volumeMode()) return false;
  _set.volumeMode = rawOf(mode);
  _preferences.setInt(kVolumeMode, _set.volumeMode);
  const bool isSoftware = mode == VolumeMode::software;
  showVolume(isSoftware                     ? listenersVolume()
             : mode == VolumeMode::hardware ? deviceVolume.value_or(1)
                                            : 1);
  _onEngine([mode, gain = isSoftware ? static_cast<float>(_volume) : 1.0F](AudioEngine& engine) {
    engine.setVolume(gain);
    engine.setVolumeMode(mode);
  });
  return true;
}

// --- Switches and numbers ---

bool PlayerSettings::setSwitch(bool DeviceSettings::*field, const char* key, bool on,
                               void (AudioEngine::*tell)(bool)) {
  if (std::exchange(_set.*field, on) == on) return false;
  _preferences.setBool(key, on);
  _onEngine([tell, on](AudioEngine& engine) { (engine.*tell)(on); });
  return true;
}

bool PlayerSettings::setNumber(int DeviceSettings::*field, const char* key, int value,
                               std::function<void(AudioEngine&)> tell) {
  if (std::exchange(_set.*field, value) == value) return false;
  _preferences.setInt(key, value);
  _onEngine(std::move(tell));
  return true;
}

bool PlayerSettings::setNumber(double DeviceSettings::*field, const char* key, double value,
                               std::function<void(AudioEngine&)> tell) {
  if (std::exchange(_set.*field, value) == value) return false;
  _preferences.setDouble(key, value);
  _onEngine(std::move(tell));
  return true;
}

bool PlayerSettings::setGapless(bool on) {
  return setSwitch(&DeviceSettings::gaplessPlayback, kGapless, on, &AudioEngine::setGaplessEnabled);
}
bool PlayerSettings::setCrossfade(bool on) {
  return setSwitch(&DeviceSettings::crossfadePlaybackEnabled, kCrossfade, on,
                   &AudioEngine::setCrossfadePlaybackEnabled);
}
bool PlayerSettings::setExclusiveMode(bool on) {
  return setSwitch(&DeviceSettings::exclusiveMode, kExclusive, on, &AudioEngine::setExclusiveMode);
}
bool PlayerSettings::setIntegerMode(bool on) {
  return setSwitch(&DeviceSettings::integerMode, kInteger, on, &AudioEngine::setIntegerMode);
}
bool PlayerSettings::setMemoryPlayback(bool on) {
  return setSwitch(&DeviceSettings::memoryPlayback, kMemory, on, &AudioEngine::setMemoryPlayback);
}
bool PlayerSettings::setForceHighSampleRate(bool on) {
  return setSwitch(&DeviceSettings::forceHighSampleRate, kForceHigh, on,
                   &AudioEngine::setForceHighSampleRate);
}
bool PlayerSettings::setLowLatencyMode(bool on) {
  return setSwitch(&DeviceSettings::lowLatencyMode, kLowLatency, on,
                   &AudioEngine::setLowLatencyMode);
}

bool PlayerSettings::setKeepsAlbums(bool on) {
  if (std::exchange(_keepsAlbums, on) == on) return false;
  _preferences.setBool(kKeepsAlbums, on);
  return true;
}

bool PlayerSettings::setCrossfadeDuration(double seconds) {
  const double usable = usableDuration(seconds);
  return setNumber(&DeviceSettings::crossfadeDuration, kCrossfadeDuration, usable,
                   [usable](AudioEngine& engine) { engine.setCrossfadeDuration(usable); });
}
bool PlayerSettings::setMemoryPlaybackLimitMB(int mebibytes) {
  const int usable = usableLimit(mebibytes);
  return setNumber(&DeviceSettings::memoryPlaybackLimitMB, kMemoryLimit, usable,
                   [usable](AudioEngine& engine) { engine.setMemoryPlaybackLimitMB(usable); });
}
bool PlayerSettings::setSampleRateStrategy(SampleRateStrategy strategy) {
  return setNumber(&DeviceSettings::sampleRateStrategy, kStrategy, rawOf(strategy),
                   [strategy](AudioEngine& engine) { engine.setSampleRateStrategy(strategy); });
}
bool PlayerSettings::setResamplingMultiplier(int multiplier) {
  const int usable = usableMultiplier(multiplier);
  return setNumber(&DeviceSettings::resamplingMultiplier, kMultiplier, usable,
                   [usable](AudioEngine& engine) { engine.setResamplingMultiplier(usable); });
}
bool PlayerSettings::setFixedSampleRate(double rate) {
  const double usable = usableRate(rate);
  return setNumber(&DeviceSettings::fixedSampleRate, kFixedRate, usable,
                   [usable](AudioEngine& engine) { engine.setFixedSampleRate(usable); });
}

// --- What the engine did by itself ---

void PlayerSettings::takeOver(const DeviceSettings& settings) {
  _set = settings;
  _set.crossfadeDuration = usableDuration(settings.crossfadeDuration);
  _set.memoryPlaybackLimitMB = usableLimit(settings.memoryPlaybackLimitMB);
  _set.resamplingMultiplier = usableMultiplier(settings.resamplingMultiplier);
  _set.fixedSampleRate = usableRate(settings.fixedSampleRate);
  if (!fromRaw<SampleRateStrategy>(settings.sampleRateStrategy)) _set.sampleRateStrategy = 0;
  if (!fromRaw<VolumeMode>(settings.volumeMode)) _set.volumeMode = 0;
  store();
  if (volumeMode() == VolumeMode::fixed) showVolume(1);
  if (volumeMode() != VolumeMode::software) return;
  showVolume(listenersVolume());
  _onEngine([gain = static_cast<float>(_volume)](AudioEngine& engine) { engine.setVolume(gain); });
}

void PlayerSettings::showSharedFloat() {
  DeviceSettings shared = _set;
  shared.exclusiveMode = false;
  shared.integerMode = false;
  shared.volumeMode = rawOf(VolumeMode::software);
  takeOver(shared);
}

void PlayerSettings::store() {
  _preferences.setBool(kGapless, _set.gaplessPlayback);
  _preferences.setBool(kCrossfade, _set.crossfadePlaybackEnabled);
  _preferences.setDouble(kCrossfadeDuration, _set.crossfadeDuration);
  _preferences.setBool(kExclusive, _set.exclusiveMode);
  _preferences.setBool(kInteger, _set.integerMode);
  _preferences.setBool(kMemory, _set.memoryPlayback);
  _preferences.setInt(kMemoryLimit, _set.memoryPlaybackLimitMB);
  _preferences.setBool(kForceHigh, _set.forceHighSampleRate);
  _preferences.setInt(kStrategy, _set.sampleRateStrategy);
  _preferences.setInt(kMultiplier, _set.resamplingMultiplier);
  _preferences.setDouble(kFixedRate, _set.fixedSampleRate);
  _preferences.setBool(kLowLatency, _set.lowLatencyMode);
  _preferences.setInt(kVolumeMode, _set.volumeMode);
}

}  // namespace velorin
