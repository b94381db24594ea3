// Every setting of the effects in one value: the unit of a comparison of two sounds, and what can
// be written to a file and read again.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "dsp/DSPChainConfig.h"
#include "dsp/presets/EQBand.h"
#include "dsp/settings/SettingsError.h"
#include "foundation/Result.h"

namespace velorin {

class DSPEffects;
class Preferences;

/// A plain value record. A default-constructed one holds the effects as they are when nothing was
/// ever set.
struct DSPSnapshot {
  std::vector<std::uint8_t> chainConfigData;  ///< JSON of a DSPChainConfig

  bool preAmpEnabled = false;
  bool replayGainEnabled = false;
  bool crossfeedEnabled = false;
  bool stereoWidenerEnabled = false;
  bool equalizerEnabled = false;
  bool channelSwapEnabled = false;
  bool phaseInvertEnabled = false;
  bool balanceEnabled = false;
  bool monoMixEnabled = false;
  bool ditherEnabled = false;
  bool tubeWarmthEnabled = false;
  bool vinylSimulatorEnabled = false;
  bool spatialAudioEnabled = false;
  bool subsonicFilterEnabled = false;
  bool loudnessCompensationEnabled = false;
  bool riaaVinylCurveEnabled = false;
  bool declickerEnabled = false;

  float preAmpGainDB = 0;
  int replayGainMode = 0;           ///< 0 track, 1 album
  double crossfeedCutoff = 700;     ///< Hz
  double crossfeedLevel = 0.595;    ///< linear
  double crossfeedDelay = 0.00027;  ///< seconds
  int stereoWidenerAlgorithm = 0;   ///< raw value of StereoWidenerDSP::Algorithm
  float stereoWidenerWidth = 1;
  int phaseInvertChannel = 0;  ///< 0 left, 1 right, 2 both
  float balanceValue = 0;      ///< -1 left to 1 right
  int ditherAlgorithm = 0;     ///< raw value of DitherDSP::Algorithm
  int ditherTargetBitDepth = 16;
  float tubeWarmthDrive = 0.3F;
  float tubeWarmthMix = 0.5F;
  float vinylNoiseLevel = 0.15F;
  float vinylCrackleRate = 0.3F;
  float vinylWarmth = 0.5F;
  float spatialAzimuth = 0;  ///< degrees
  float spatialRoomSize = 0.3F;
  float spatialDistance = 1;  ///< metres
  float subsonicCutoff = 20;  ///< Hz
  float loudnessRefLevel = 0.8F;
  float loudnessBassBoost = 12;   ///< dB at volume 0
  float loudnessTrebleBoost = 6;  ///< dB at volume 0
  float declickerThreshold = 3;
  int declickerMaxClickLength = 48;  ///< samples
  float declickerBlend = 1;

  std::string equalizerPresetName = "Flat";
  std::vector<std::uint8_t> equalizerBandsData;  ///< JSON array of bands, as in a preset file

  bool operator==(const DSPSnapshot&) const = default;
};

/// One object, compact, with each field as a key of the same name; bytes are base64 texts.
std::string toJSON(const DSPSnapshot& snapshot);

/// Reads one back. Every key is required and of its type; other keys are passed over. Numbers are
/// taken as they stand, those beyond the type of their field as its limit: whether an effect can
/// have them is decided where they are applied.
Result<DSPSnapshot, SettingsError> snapshotFromJSON(std::string_view json);

/// What the two fields of bytes hold; nothing where they cannot be read. Of more bands than an
/// equalizer has, the first.
std::optional<DSPChainConfig> chainOf(const DSPSnapshot& snapshot);
std::optional<std::vector<EQBand>> bandsOf(const DSPSnapshot& snapshot);

/// The snapshot's switches become those of the entries.
void followSwitches(std::vector<DSPChainEntry>& entries, const DSPSnapshot& snapshot);

/// The effects as they are; the preset's name from the preferences. Not the render thread.
DSPSnapshot captureSnapshot(DSPEffects& effects, const Preferences& preferences);

/// Brings effects, chain and global keys to the snapshot. A number that the effect cannot have
/// leaves what it has, and so do a chain and bands that cannot be read. What is as it should be is
/// not touched, so that applying what is there already is not heard. Not the render thread.
void applySnapshot(const DSPSnapshot& snapshot, DSPEffects& effects, Preferences& preferences);

}  // namespace velorin
