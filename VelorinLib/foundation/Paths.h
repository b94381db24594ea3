// Where the program keeps its files, by the XDG Base Directory Specification 0.8.
//
// $VELORIN_HOME=DIR puts everything under one folder instead: DIR/data, DIR/cache, DIR/config
// and DIR/run. Nothing here creates a folder; who writes into one makes it. The environment is
// read at each call, on any thread as long as nobody changes it.
#pragma once

#include <filesystem>

namespace velorin::paths {

/// $XDG_DATA_HOME/Velorin, else ~/.local/share/Velorin: library, presets, models.
std::filesystem::path dataDirectory();

/// $XDG_CACHE_HOME/Velorin, else ~/.cache/Velorin: what can be made again.
std::filesystem::path cacheDirectory();

/// $XDG_CONFIG_HOME/Velorin, else ~/.config/Velorin.
std::filesystem::path configDirectory();

/// $XDG_RUNTIME_DIR/Velorin: sockets. Without a session it is "run" in the cache folder, which
/// no other user can write to either.
std::filesystem::path runtimeDirectory();

/// The file of the preference store, in the configuration folder.
std::filesystem::path preferencesFile();

/// $HOME, else the home folder of the password database.
std::filesystem::path homeDirectory();

}  // namespace velorin::paths
