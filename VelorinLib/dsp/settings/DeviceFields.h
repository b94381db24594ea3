// The fields of DeviceSettings by name: one list for the preferences and for JSON.
#pragma once

#include <cmath>
#include <limits>
#include <string_view>
#include <tuple>
#include <type_traits>

#include "records/DeviceSettings.h"

namespace velorin {

template <class Value>
struct DeviceField {
  std::string_view name;
  Value DeviceSettings::*member;
  double above = -std::numeric_limits<double>::infinity();  ///< a number has to be above this
  double highest = std::numeric_limits<double>::max();

  /// Else the field takes what a default-constructed record has.
  bool takes(double value) const noexcept { return value > above && value <= highest; }
};

template <class Value>
constexpr DeviceField<Value> deviceField(std::string_view name, Value DeviceSettings::*member) {
  return {name, member};
}
template <class Value>
constexpr DeviceField<Value> numberAbove(double above, std::string_view name,
                                         Value DeviceSettings::*member) {
  return {name, member, above};
}
/// The raw value of an enumeration.
constexpr DeviceField<int> rawUpTo(int highest, std::string_view name,
                                   int DeviceSettings::*member) {
  return {name, member, -1, static_cast<double>(highest)};
}

/// In the order of the record.
inline constexpr auto kDeviceFields =
    std::tuple(deviceField("exclusiveMode", &DeviceSettings::exclusiveMode),
               deviceField("integerMode", &DeviceSettings::integerMode),
               deviceField("gaplessPlayback", &DeviceSettings::gaplessPlayback),
               deviceField("memoryPlayback", &DeviceSettings::memoryPlayback),
               numberAbove(0, "memoryPlaybackLimitMB", &DeviceSettings::memoryPlaybackLimitMB),
               deviceField("forceHighSampleRate", &DeviceSettings::forceHighSampleRate),
               rawUpTo(3, "sampleRateStrategy", &DeviceSettings::sampleRateStrategy),
               numberAbove(2, "resamplingMultiplier", &DeviceSettings::resamplingMultiplier),
               deviceField("fixedSampleRate", &DeviceSettings::fixedSampleRate),
               deviceField("lowLatencyMode", &DeviceSettings::lowLatencyMode),
               deviceField("crossfadePlaybackEnabled", &DeviceSettings::crossfadePlaybackEnabled),
               numberAbove(0, "crossfadeDuration", &DeviceSettings::crossfadeDuration),
               deviceField("crossfeedEnabled", &DeviceSettings::crossfeedEnabled),
               numberAbove(0, "crossfeedCutoff", &DeviceSettings::crossfeedCutoff),
               numberAbove(0, "crossfeedLevel", &DeviceSettings::crossfeedLevel),
               numberAbove(0, "crossfeedDelay", &DeviceSettings::crossfeedDelay),
               deviceField("stereoWidenerEnabled", &DeviceSettings::stereoWidenerEnabled),
               deviceField("stereoWidenerWidth", &DeviceSettings::stereoWidenerWidth),
               deviceField("stereoWidenerAlgorithm", &DeviceSettings::stereoWidenerAlgorithm),
               deviceField("channelSwapEnabled", &DeviceSettings::channelSwapEnabled),
               deviceField("phaseInvertEnabled", &DeviceSettings::phaseInvertEnabled),
               deviceField("phaseInvertChannel", &DeviceSettings::phaseInvertChannel),
               deviceField("balanceEnabled", &DeviceSettings::balanceEnabled),
               deviceField("balanceValue", &DeviceSettings::balanceValue),
               deviceField("monoMixEnabled", &DeviceSettings::monoMixEnabled),
               deviceField("preAmpEnabled", &DeviceSettings::preAmpEnabled),
               deviceField("preAmpGainDB", &DeviceSettings::preAmpGainDB),
               deviceField("replayGainEnabled", &DeviceSettings::replayGainEnabled),
               deviceField("replayGainMode", &DeviceSettings::replayGainMode),
               deviceField("ditherEnabled", &DeviceSettings::ditherEnabled),
               numberAbove(0, "ditherTargetBitDepth", &DeviceSettings::ditherTargetBitDepth),
               deviceField("ditherAlgorithm", &DeviceSettings::ditherAlgorithm),
               deviceField("equalizerEnabled", &DeviceSettings::equalizerEnabled),
               deviceField("equalizerPresetName", &DeviceSettings::equalizerPresetName),
               rawUpTo(2, "volumeMode", &DeviceSettings::volumeMode),
               deviceField("dspChainConfigData", &DeviceSettings::dspChainConfigData));

/// Calls visit(field) for each of them, in order.
template <class Visit>
void forEachDeviceField(Visit&& visit) {
  std::apply([&](const auto&... field) { (visit(field), ...); }, kDeviceFields);
}

}  // namespace velorin
