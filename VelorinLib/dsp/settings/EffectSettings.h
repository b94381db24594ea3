// The effects' parameters as they are kept: in the preferences, and in the profile of a device.
#pragma once

#include <optional>
#include <vector>

#include "dsp/DSPEffectType.h"
#include "dsp/settings/DSPSetting.h"
#include "records/DeviceSettings.h"

namespace velorin {

struct DSPChainConfig;
struct DSPChainEntry;
class DSPEffects;
class EQPresetManager;
class Preferences;

// Not the render thread; blocks for the disk where a preset of the listener's own is looked up:
// with null among those of the program.

/// Brings every effect to what is stored: switches, parameters, the bands of the preset
/// "equalizerPresetName", and "headroomManagementEnabled". What is missing or cannot be had leaves
/// the default. The chain is not touched.
void loadEffects(DSPEffects& effects, const Preferences& preferences,
                 const EQPresetManager* presets = nullptr);

/// Stores the switch and the parameters of one effect, or of all, under their global keys.
void storeEffect(DSPEffectType type, DSPEffects& effects, Preferences& preferences);
void storeEffects(DSPEffects& effects, Preferences& preferences);

/// The stored chain; nothing where there is none that can be read.
std::optional<DSPChainConfig> storedChain(const Preferences& preferences);
/// Under "dspChainConfig".
void storeChain(const std::vector<DSPChainEntry>& entries, Preferences& preferences);

/// Fills in the effects' fields of a profile: switches, parameters and chain as they are, and
/// "equalizerPresetName" from the preferences. The playback fields stay as they are.
void captureEffects(DSPEffects& effects, const Preferences& preferences, DeviceSettings& into);

/// Brings the effects, their global keys and the chain to a profile. A number that an effect cannot
/// have leaves what it has; so does a preset that is not there, whose name is stored all the same.
/// Without a readable chain in the profile the entries of the present one follow the switches;
/// else the chain's own switches count.
void applyEffects(const DeviceSettings& settings, DSPEffects& effects, Preferences& preferences,
                  const EQPresetManager* presets = nullptr);

// --- One setting ---

/// As it is; of a float the double that is written like it.
double valueOf(DSPSetting setting, DSPEffects& effects);
/// False for a number that the effect cannot have. One that it has already is not set again.
bool setValue(DSPSetting setting, double value, DSPEffects& effects);
/// The same for the bands: new filters start from silence, so those that are right stay.
void setBands(const std::vector<EQBand>& bands, DSPEffects& effects);

/// As JSON, as snapshots, profiles and the preferences hold them.
std::vector<std::uint8_t> chainData(const std::vector<DSPChainEntry>& entries);
std::vector<std::uint8_t> bandsData(const std::vector<EQBand>& bands);

}  // namespace velorin
