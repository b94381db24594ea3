#include "dsp/settings/DSPSetting.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

namespace velorin {
namespace {

using Effect = DSPEffectType;
using Snapshot = DSPSnapshot;
using Device = DeviceSettings;

// X(setting, key, effect, parameter, lowest, highest, place in the device's profile)
constexpr std::array<DSPSettingInfo, kDSPSettingCount> kSettings{{
#define VELORIN_SETTING(name, key, effect, parameter, lowest, highest, inDevice)  \
  {DSPSetting::name, #name,           key,     Effect::effect, parameter, lowest, \
   highest,          &Snapshot::name, inDevice}
#define VELORIN_OF_DEVICE(name, effect, parameter, lowest, highest) \
  VELORIN_SETTING(name, #name, effect, parameter, lowest, highest, &Device::name)
#define VELORIN_OF_ALL(name, key, effect, parameter, lowest, highest) \
  VELORIN_SETTING(name, key, effect, parameter, lowest, highest, std::monostate{})
    VELORIN_OF_DEVICE(preAmpGainDB, preAmp, "gainDB", -100, 100),
    VELORIN_OF_DEVICE(replayGainMode, replayGain, "mode", 0, 1),
    VELORIN_OF_DEVICE(crossfeedCutoff, crossfeed, "cutoffFrequency", 20, 20000),
    VELORIN_OF_DEVICE(crossfeedLevel, crossfeed, "crossfeedLevel", 0, 1),
    VELORIN_OF_DEVICE(crossfeedDelay, crossfeed, "delayTime", 0, 1),
    VELORIN_OF_DEVICE(stereoWidenerAlgorithm, stereoWidener, "algorithm", 0, 2),
    VELORIN_OF_DEVICE(stereoWidenerWidth, stereoWidener, "width", 0, 2),
    VELORIN_OF_DEVICE(phaseInvertChannel, phaseInvert, "channel", 0, 2),
    VELORIN_OF_DEVICE(balanceValue, balance, "balance", -1, 1),
    VELORIN_OF_DEVICE(ditherAlgorithm, dither, "algorithm", 0, 3),
    VELORIN_OF_DEVICE(ditherTargetBitDepth, dither, "targetBitDepth", 2, 32),
    VELORIN_OF_ALL(tubeWarmthDrive, "tubeWarmthDrive", tubeWarmth, "drive", 0, 1),
    VELORIN_OF_ALL(tubeWarmthMix, "tubeWarmthMix", tubeWarmth, "mix", 0, 1),
    VELORIN_OF_ALL(vinylNoiseLevel, "vinylSimulatorNoiseLevel", vinylSimulator, "noiseLevel", 0, 1),
    VELORIN_OF_ALL(vinylCrackleRate, "vinylSimulatorCrackleRate", vinylSimulator, "crackleRate", 0,
                   1),
    VELORIN_OF_ALL(vinylWarmth, "vinylSimulatorWarmth", vinylSimulator, "warmth", 0, 1),
    VELORIN_OF_ALL(spatialAzimuth, "spatialAudioAzimuth", spatialAudio, "azimuth", -180, 180),
    VELORIN_OF_ALL(spatialRoomSize, "spatialAudioRoomSize", spatialAudio, "roomSize", 0, 1),
    VELORIN_OF_ALL(spatialDistance, "spatialAudioDistance", spatialAudio, "distance", 0.5, 1000),
    VELORIN_OF_ALL(subsonicCutoff, "subsonicFilterCutoff", subsonicFilter, "cutoff", 1, 1000),
    VELORIN_OF_ALL(loudnessRefLevel, "loudnessRefLevel", loudnessCompensation, "referenceLevel", 0,
                   1),
    VELORIN_OF_ALL(loudnessBassBoost, "loudnessMaxBassBoost", loudnessCompensation,
                   "maxBassBoostDB", 0, 40),
    VELORIN_OF_ALL(loudnessTrebleBoost, "loudnessMaxTrebleBoost", loudnessCompensation,
                   "maxTrebleBoostDB", 0, 40),
    VELORIN_OF_ALL(declickerThreshold, "declickerThreshold", declicker, "threshold", 0, 1000),
    VELORIN_OF_ALL(declickerMaxClickLength, "declickerMaxClickLength", declicker, "maxClickLength",
                   0, 65536),
    VELORIN_OF_ALL(declickerBlend, "declickerBlend", declicker, "blend", 0, 1),
#undef VELORIN_OF_ALL
#undef VELORIN_OF_DEVICE
#undef VELORIN_SETTING
}};

constexpr std::array<DSPSwitchInfo, kEffectCount - 1> kSwitches{{
#define VELORIN_OF_DEVICE(effect) \
  {Effect::effect, #effect "Enabled", &Snapshot::effect##Enabled, &Device::effect##Enabled}
#define VELORIN_OF_ALL(effect) \
  { Effect::effect, #effect "Enabled", &Snapshot::effect##Enabled, nullptr }
    VELORIN_OF_DEVICE(preAmp),
    VELORIN_OF_DEVICE(replayGain),
    VELORIN_OF_DEVICE(crossfeed),
    VELORIN_OF_DEVICE(stereoWidener),
    VELORIN_OF_DEVICE(equalizer),
    VELORIN_OF_DEVICE(channelSwap),
    VELORIN_OF_DEVICE(phaseInvert),
    VELORIN_OF_DEVICE(balance),
    VELORIN_OF_DEVICE(monoMix),
    VELORIN_OF_DEVICE(dither),
    VELORIN_OF_ALL(tubeWarmth),
    VELORIN_OF_ALL(vinylSimulator),
    VELORIN_OF_ALL(spatialAudio),
    VELORIN_OF_ALL(subsonicFilter),
    VELORIN_OF_ALL(loudnessCompensation),
    VELORIN_OF_ALL(riaaVinylCurve),
    VELORIN_OF_ALL(declicker),
#undef VELORIN_OF_ALL
#undef VELORIN_OF_DEVICE
}};

template <class Number>
Number held(double value) noexcept {
  using Limits = std::numeric_limits<Number>;
  if (value >= static_cast<double>(Limits::max())) return Limits::max();
  if (value <= static_cast<double>(Limits::lowest())) return Limits::lowest();
  return static_cast<Number>(value);
}

}  // namespace

bool DSPSettingInfo::takes(double value) const noexcept {
  return value >= lowest && value <= highest && (!isWhole() || value == std::floor(value));
}

const std::array<DSPSettingInfo, kDSPSettingCount>& allDSPSettings() noexcept {
  return kSettings;
}

const DSPSettingInfo& infoOf(DSPSetting setting) noexcept {
  return kSettings[static_cast<std::size_t>(setting)];
}

std::optional<DSPSetting> dspSetting(std::string_view name) noexcept {
  const auto found = std::ranges::find(kSettings, name, &DSPSettingInfo::name);
  return found == kSettings.end() ? std::nullopt : std::optional(found->setting);
}

std::span<const DSPSwitchInfo> allDSPSwitches() noexcept {
  return kSwitches;
}

const DSPSwitchInfo* switchOf(DSPEffectType effect) noexcept {
  const auto found = std::ranges::find(kSwitches, effect, &DSPSwitchInfo::effect);
  return found == kSwitches.end() ? nullptr : &*found;
}

double asWritten(float value) noexcept {
  if (!std::isfinite(value)) return value;
  std::array<char, 32> digits{};
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr;
  double same = value;
  std::from_chars(digits.data(), end, same);
  return same;
}

template <class Record>
std::optional<double> numberAt(const Record& record, const NumberIn<Record>& place) {
  return std::visit(
      [&](auto member) -> std::optional<double> {
        using Member = decltype(member);
        if constexpr (std::is_same_v<Member, std::monostate>) {
          return std::nullopt;
        } else if constexpr (std::is_same_v<Member, float Record::*>) {
          return asWritten(record.*member);
        } else {
          return record.*member;
        }
      },
      place);
}

template <class Record>
void putNumber(Record& record, const NumberIn<Record>& place, double value) {
  if (std::isnan(value)) return;
  std::visit(
      [&](auto member) {
        if constexpr (!std::is_same_v<decltype(member), std::monostate>) {
          auto& number = record.*member;
          number = held<std::decay_t<decltype(number)>>(value);
        }
      },
      place);
}

template std::optional<double> numberAt(const DSPSnapshot&, const NumberIn<DSPSnapshot>&);
template std::optional<double> numberAt(const DeviceSettings&, const NumberIn<DeviceSettings>&);
template void putNumber(DSPSnapshot&, const NumberIn<DSPSnapshot>&, double);
template void putNumber(DeviceSettings&, const NumberIn<DeviceSettings>&, double);

}  // namespace velorin
