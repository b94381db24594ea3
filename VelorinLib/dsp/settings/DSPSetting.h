// Every parameter of the effects that is kept, in one table: what it is called, which effect has
// it, under which key it is stored, and where it stands in a snapshot and in a device's profile.
#pragma once

#include <array>
#include <optional>
#include <span>
#include <string_view>
#include <variant>

#include "dsp/DSPEffectType.h"
#include "dsp/settings/DSPSnapshot.h"
#include "records/DeviceSettings.h"

namespace velorin {

/// In the order of the snapshot. Values are doubles throughout, a choice is its index.
enum class DSPSetting {
  preAmpGainDB,            ///< dB
  replayGainMode,          ///< 0 track, 1 album
  crossfeedCutoff,         ///< Hz
  crossfeedLevel,          ///< linear
  crossfeedDelay,          ///< seconds
  stereoWidenerAlgorithm,  ///< index of StereoWidenerDSP::Algorithm
  stereoWidenerWidth,      ///< 0 mono, 1 as it is, 2 wide
  phaseInvertChannel,      ///< 0 left, 1 right, 2 both
  balanceValue,            ///< -1 left to 1 right
  ditherAlgorithm,         ///< index of DitherDSP::Algorithm
  ditherTargetBitDepth,    ///< bits
  tubeWarmthDrive,         ///< 0 to 1, as are the four after it
  tubeWarmthMix,
  vinylNoiseLevel,
  vinylCrackleRate,
  vinylWarmth,
  spatialAzimuth,           ///< degrees, positive to the right
  spatialRoomSize,          ///< 0 to 1
  spatialDistance,          ///< metres
  subsonicCutoff,           ///< Hz
  loudnessRefLevel,         ///< volume, 0 to 1
  loudnessBassBoost,        ///< dB at volume 0
  loudnessTrebleBoost,      ///< dB at volume 0
  declickerThreshold,       ///< factor
  declickerMaxClickLength,  ///< samples
  declickerBlend,           ///< 0 to 1
};

inline constexpr std::size_t kDSPSettingCount = 26;

/// Where a number stands in a record; nowhere with std::monostate.
template <class Record>
using NumberIn = std::variant<std::monostate, int Record::*, float Record::*, double Record::*>;

struct DSPSettingInfo {
  DSPSetting setting;
  std::string_view name;  ///< of the enumerator, and of the fields of the records
  std::string_view key;   ///< global preference
  DSPEffectType effect;
  std::string_view parameter;  ///< EffectParameter::name
  double lowest;               ///< What the effect can have. What a panel offers is less: see
  double highest;              ///< EffectParameter.
  NumberIn<DSPSnapshot> inSnapshot;
  NumberIn<DeviceSettings> inDevice;  ///< nowhere: it is the same on all devices

  bool isWhole() const noexcept { return std::holds_alternative<int DSPSnapshot::*>(inSnapshot); }
  /// A number that the effect can have.
  bool takes(double value) const noexcept;
};

/// The switch of an effect. The headphone profile has none of its own: its entry of the chain
/// holds it.
struct DSPSwitchInfo {
  DSPEffectType effect;
  std::string_view key;  ///< global preference, and name of the fields of the records
  bool DSPSnapshot::*inSnapshot;
  bool DeviceSettings::*inDevice;  ///< null: it is the same on all devices
};

/// All of them, in order of the enumeration.
const std::array<DSPSettingInfo, kDSPSettingCount>& allDSPSettings() noexcept;
const DSPSettingInfo& infoOf(DSPSetting setting) noexcept;
std::optional<DSPSetting> dspSetting(std::string_view name) noexcept;

/// In order of DSPEffectType; null for the headphone profile.
std::span<const DSPSwitchInfo> allDSPSwitches() noexcept;
const DSPSwitchInfo* switchOf(DSPEffectType effect) noexcept;

/// The number at a place of a record; none for a place that is none.
template <class Record>
std::optional<double> numberAt(const Record& record, const NumberIn<Record>& place);
/// Puts a number there, held within the type of the field; NaN and no place change nothing.
template <class Record>
void putNumber(Record& record, const NumberIn<Record>& place, double value);

/// The double that is written like the float: 0.3F becomes 0.3, so that a file shows what was set.
double asWritten(float value) noexcept;

}  // namespace velorin
