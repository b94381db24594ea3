#include "engine/devices/PlaybackProfile.h"

#include "engine/EngineSettings.h"
#include "engine/joins/JoinSettings.h"
#include "foundation/Preferences.h"

namespace velorin {
namespace {

constexpr std::string_view kExclusiveKey = "exclusiveMode";
constexpr std::string_view kVolumeModeKey = "volumeMode";

/// Calls visit(key, member) for each playback field with the key that it has for all devices.
template <class Visit>
void forEachPlaybackField(Visit&& visit) {
  visit(kExclusiveKey, &DeviceSettings::exclusiveMode);
  visit("integerMode", &DeviceSettings::integerMode);
  visit("gaplessPlayback", &DeviceSettings::gaplessPlayback);
  visit("memoryPlayback", &DeviceSettings::memoryPlayback);
  visit("memoryPlaybackLimitMB", &DeviceSettings::memoryPlaybackLimitMB);
  visit("forceHighSampleRate", &DeviceSettings::forceHighSampleRate);
  visit("sampleRateStrategy", &DeviceSettings::sampleRateStrategy);
  visit("resamplingMultiplier", &DeviceSettings::resamplingMultiplier);
  visit("fixedSampleRate", &DeviceSettings::fixedSampleRate);
  visit("lowLatencyMode", &DeviceSettings::lowLatencyMode);
  visit("crossfadePlayback", &DeviceSettings::crossfadePlaybackEnabled);
  visit("crossfadeDuration", &DeviceSettings::crossfadeDuration);
  visit(kVolumeModeKey, &DeviceSettings::volumeMode);
}

}  // namespace

void capturePlayback(const EngineSettings& settings, const JoinSettings& joins,
                     DeviceSettings& into) {
  into.exclusiveMode = settings.exclusiveMode;
  into.integerMode = settings.integerMode;
  into.lowLatencyMode = settings.lowLatencyMode;
  into.forceHighSampleRate = settings.rates.forceHighRate;
  into.sampleRateStrategy = static_cast<int>(settings.rates.strategy);
  into.resamplingMultiplier = settings.rates.multiplier;
  into.fixedSampleRate = settings.rates.fixedRate;
  into.gaplessPlayback = joins.gaplessEnabled();
  into.crossfadePlaybackEnabled = joins.crossfadeEnabled();
  into.crossfadeDuration = joins.crossfadeDuration();
}

void applyPlayback(const DeviceSettings& profile, EngineSettings& settings, JoinSettings& joins) {
  settings.integerMode = profile.integerMode;
  settings.lowLatencyMode = profile.lowLatencyMode;
  settings.rates.forceHighRate = profile.forceHighSampleRate;
  settings.rates.strategy =
      fromRaw<SampleRateStrategy>(profile.sampleRateStrategy).value_or(SampleRateStrategy::native);
  settings.rates.multiplier = profile.resamplingMultiplier;
  settings.rates.fixedRate = profile.fixedSampleRate;
  joins.setGaplessEnabled(profile.gaplessPlayback);
  joins.setCrossfadeEnabled(profile.crossfadePlaybackEnabled);
  joins.setCrossfadeDuration(profile.crossfadeDuration);
}

void storePlayback(const DeviceSettings& profile, Preferences& preferences) {
  forEachPlaybackField([&](std::string_view key, auto member) {
    const auto& value = profile.*member;
    if constexpr (std::is_same_v<decltype(value), const bool&>) {
      preferences.setBool(key, value);
    } else if constexpr (std::is_same_v<decltype(value), const int&>) {
      preferences.setInt(key, value);
    } else {
      preferences.setDouble(key, value);
    }
  });
}

void loadLatePlayback(const Preferences& preferences, DeviceSettings& into) {
  into.exclusiveMode = preferences.getBool(kExclusiveKey).value_or(false);
  const auto mode = fromRaw<VolumeMode>(preferences.getInt(kVolumeModeKey).value_or(0));
  into.volumeMode = static_cast<int>(mode.value_or(VolumeMode::software));
}

}  // namespace velorin
