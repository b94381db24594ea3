// The playback fields of a device's profile, and their keys in the preferences. The effects'
// fields are those of dsp/settings.
#pragma once

#include "records/DeviceSettings.h"

namespace velorin {

class JoinSettings;
class Preferences;
struct EngineSettings;

/// Engine fields into a profile; memory playback, volume mode and the effects' fields stay as they
/// are.
void capturePlayback(const EngineSettings& settings, const JoinSettings& joins,
                     DeviceSettings& into);

/// A profile into the engine's fields, from the next play() on. A strategy that no version has is
/// SampleRateStrategy::native. Exclusive access is not taken here.
void applyPlayback(const DeviceSettings& profile, EngineSettings& settings, JoinSettings& joins);

/// Makes them what is set for all devices, volume mode included.
void storePlayback(const DeviceSettings& profile, Preferences& preferences);

/// Fills in what is set for all devices and is no field of the engine before the player has
/// started: exclusive access and volume mode.
void loadLatePlayback(const Preferences& preferences, DeviceSettings& into);

}  // namespace velorin
