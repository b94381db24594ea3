// What the command line can say, after it was checked.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "library/metadata/TagChanges.h"
#include "platform/audio/AudioHardwareFactory.h"
#include "records/PlaybackTypes.h"
#include "session/PlayerTypes.h"
#include "shell/InstanceMessage.h"

namespace velorin {

/// How to play, for `play` and `render`. What is empty stays as the preferences have it.
struct EngineOptions {
  bool exclusive = false;
  bool integer = false;
  std::optional<SampleRateStrategy> strategy;
  std::optional<int> multiplier;    ///< 2 to 64
  std::optional<double> fixedRate;  ///< Hz
  std::optional<double> start;      ///< seconds into the first file
  bool forceHighRate = false;       ///< high rates although the device's buffer is short there
  bool memory = false;              ///< play from RAM
  std::optional<int> memoryLimit;   ///< MiB of a file
  std::optional<VolumeMode> volumeMode;
  std::optional<double> volume;     ///< linear, 0 to 1
  std::filesystem::path chain;      ///< file of the effect chain; empty: the stored one
  bool noGapless = false;           ///< each track starts anew
  std::optional<double> crossfade;  ///< seconds; 0 for none
  bool noAlbumCrossfade = false;    ///< neighbours of one album are joined without a crossfade
};

struct PlayOptions {
  std::vector<std::filesystem::path> inputs;
  EngineOptions engine;
  AudioBackendChoice audio = AudioBackendChoice::automatic;
  std::string deviceUID;  ///< empty: the saved device, else the default
  bool shuffle = false;
  RepeatMode repeat = RepeatMode::off;
  bool verbose = false;
};

struct RenderOptions {
  std::vector<std::filesystem::path> inputs;
  EngineOptions engine;
  std::filesystem::path output;
  std::filesystem::path events;       ///< empty: none
  std::vector<double> deviceRates;    ///< Hz; empty: every rate that the files need
  std::uint32_t deviceBufferMax = 0;  ///< frames; 0: as much as any rate needs
  bool verbose = false;
};

struct DevicesOptions {
  AudioBackendChoice audio = AudioBackendChoice::automatic;
  bool json = false;
};

struct InfoOptions {
  std::vector<std::filesystem::path> inputs;
  bool json = false;
};

struct SearchOptions {
  std::string text;         ///< any bytes
  std::int64_t limit = 50;  ///< tracks; 1 or more
  std::int64_t offset = 0;  ///< tracks left out before; 0 or more
  bool json = false;
};

struct LibraryListOptions {
  bool json = false;
};

struct LibraryFoldersOptions {
  enum class Action { add, remove };
  Action action = Action::add;
  std::vector<std::filesystem::path> folders;
  bool json = false;
  bool verbose = false;
};

struct ScanOptions {
  bool full = false;  ///< everything is read anew
  bool json = false;
  bool verbose = false;
};

struct PlaylistOptions {
  enum class Action { list, show, importFiles, exportFile, remove, create };
  Action action = Action::list;
  std::string name;                          ///< of all actions but list and importFiles
  std::vector<std::filesystem::path> files;  ///< to import; 1 or more
  std::filesystem::path output;              ///< of an export; empty: standard output
  std::filesystem::path rules;               ///< of a smart playlist that is created
  bool json = false;                         ///< of list and show
};

struct DspOptions {
  enum class Action { list, presets, profiles, response };
  Action action = Action::list;
  bool json = false;
  std::filesystem::path chain;  ///< of a response
  std::filesystem::path png;    ///< where to draw it; empty: nowhere
  double sampleRate = 44100;    ///< Hz
};

struct TagOptions {
  std::vector<std::filesystem::path> inputs;
  TagChanges changes;  ///< at least one
  bool json = false;
};

struct RunOptions {
  std::vector<std::filesystem::path> files;
  InstanceAction action = InstanceAction::open;  ///< what becomes of the files
  AudioBackendChoice audio = AudioBackendChoice::automatic;
  bool verbose = false;
};

struct ControlOptions {
  InstanceAction action = InstanceAction::playPause;
  std::vector<std::string> words = {};  ///< of set: the setting and what it is set to
  bool json = false;                    ///< of status and path
};

/// Text that was asked for: help, version.
struct ShowText {
  std::string text;
};

/// Why the command line makes no sense, and what to do; one line.
struct WrongUsage {
  std::string text;
};

using Command =
    std::variant<RunOptions, ControlOptions, PlayOptions, RenderOptions, DevicesOptions,
                 InfoOptions, SearchOptions, LibraryListOptions, LibraryFoldersOptions, ScanOptions,
                 PlaylistOptions, DspOptions, TagOptions, ShowText, WrongUsage>;

/// Exit codes of the program.
inline constexpr int kExitSuccess = 0;
inline constexpr int kExitFailure = 1;
inline constexpr int kExitWrongUsage = 2;

/// Reads the arguments.
Command parseCommandLine(int argc, const char* const* argv);

}  // namespace velorin
