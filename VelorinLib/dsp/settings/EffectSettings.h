// The effects' parameters as they are kept: in the preferences, and in the profile of a device.
#pragma once

#include "dsp/DSPEffectType.h"
#include "records/DeviceSettings.h"

namespace velorin {

class DSPEffects;
class Preferences;

// One caller at a time, like the effects themselves; not the render thread.

/// Brings every effect to what is stored; what is missing or out of range leaves the default.
void loadEffects(DSPEffects& effects, const Preferences& preferences);

/// Stores the switch and the parameters of one effect, or of all, under their global keys.
void storeEffect(DSPEffectType type, DSPEffects& effects, Preferences& preferences);
void storeEffects(DSPEffects& effects, Preferences& preferences);

/// Fills in the effects' fields of a profile, "equalizerPresetName" and the chain from the
/// preferences. The playback fields stay as they are.
void captureEffects(DSPEffects& effects, const Preferences& preferences, DeviceSettings& into);

/// Brings the effects and their global keys to a profile; values that no effect has are left out.
/// The chain is applied as well where the profile has a readable one.
void applyEffects(const DeviceSettings& settings, DSPEffects& effects, Preferences& preferences);

}  // namespace velorin
