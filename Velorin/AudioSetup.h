// Making an engine play as the command line says.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Options.h"

namespace velorin {

class AudioEngine;
class AudioHardware;

/// Hands the settings to the engine. Engine queue, or before anything plays.
void applySettings(const EngineOptions& options, AudioEngine& engine);

/// The device with that UID or, failing that, that name; kNoDevice when there is none.
AudioDeviceID findDevice(AudioHardware& hardware, std::string_view wanted);

}  // namespace velorin
