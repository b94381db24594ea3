// Making an engine play as the command line says.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Options.h"

namespace velorin {

class AudioEngine;
class AudioHardware;
class PlayerState;
class Preferences;

/// Hands the chain of a file to the engine. Nothing on success, else one line that says what is
/// wrong; then the engine keeps what it has. Engine queue, or before anything plays.
std::optional<std::string> applyChainFile(const std::filesystem::path& file, AudioEngine& engine);

/// The user's preferences as they are now. Changes stay in memory: how one command plays is no
/// choice for the others.
std::unique_ptr<Preferences> preferencesOfThisRun();

/// Hands the settings to the player and its engine. Main thread, before anything plays.
void applySettings(const EngineOptions& options, PlayerState& player);

/// The device with that UID or, failing that, that name; kNoDevice when there is none.
AudioDeviceID findDevice(AudioHardware& hardware, std::string_view wanted);

}  // namespace velorin
