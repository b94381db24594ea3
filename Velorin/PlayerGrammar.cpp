#include "PlayerGrammar.h"

#include <CLI/CLI.hpp>
#include <system_error>

#include "ChoiceOption.h"
#include "shell/ControlSettings.h"

namespace velorin {
namespace {

constexpr std::pair<const char*, InstanceAction> kControls[] = {
    {"play", InstanceAction::play},
    {"pause", InstanceAction::pause},
    {"play-pause", InstanceAction::playPause},
    {"stop", InstanceAction::stop},
    {"next", InstanceAction::next},
    {"previous", InstanceAction::previous},
    {"status", InstanceAction::status},
    {"quit", InstanceAction::quit},
};

constexpr const char* describe(InstanceAction action) {
  switch (action) {
    case InstanceAction::play:
      return "Play, or go on";
    case InstanceAction::pause:
      return "Pause";
    case InstanceAction::playPause:
      return "Pause when playing, else play";
    case InstanceAction::stop:
      return "Stop";
    case InstanceAction::next:
      return "Go to the next track";
    case InstanceAction::previous:
      return "Go to the previous track";
    case InstanceAction::status:
      return "Show what plays";
    default:
      return "End the player";
  }
}

bool exists(const std::string& path) {
  std::error_code error;
  return std::filesystem::exists(std::filesystem::symlink_status(path, error));
}

/// Looks like a path rather than like a misspelt command.
bool looksLikeFile(const std::string& argument) {
  return argument.find_first_of("/.") != std::string::npos || exists(argument);
}

bool isCommand(const CLI::App& app, const std::string& name) {
  const auto commands = app.get_subcommands([](const CLI::App*) { return true; });
  return std::any_of(commands.begin(), commands.end(),
                     [&](const CLI::App* command) { return command->check_name(name); });
}

}  // namespace

struct PlayerGrammar::Fields {
  bool isHeadless = false;  ///< always so in a build without a window
  CLI::App* runCommand = nullptr;
  CLI::App* openCommand = nullptr;
  CLI::App* controlCommand = nullptr;
  CLI::App* pathCommand = nullptr;
  RunOptions run;
  RunOptions open;
  ControlOptions control;
  ControlOptions path{.action = InstanceAction::path};

  void addRun(CLI::App& app) {
    runCommand = app.add_subcommand("run", "Start the player; 'velorin' alone does the same");
    runCommand->add_option("FILE", run.files, "Files and folders to play")->type_name("...");
    runCommand->add_flag("--headless", isHeadless,
                         "Without a window, as on a machine without a display");
    addAudioOption(runCommand, run.audio);
    runCommand->add_flag("-v,--verbose", run.verbose, "Show every line of the log");
    runCommand->footer(
        "The player restores the queue of its last end. Media keys, MPRIS clients and\n"
        "'velorin control' act on it. There is one for each user: where it runs already, it gets\n"
        "the files.");
  }

  void addOpen(CLI::App& app) {
    openCommand = app.add_subcommand("open", "Give files to the player; it is started if need be");
    openCommand->add_option("FILE", open.files, "Files and folders")->required()->type_name("...");
    const auto addMode = [this](const char* name, InstanceAction action, const char* description) {
      return openCommand->add_flag_callback(
          name, [this, action] { open.action = action; }, description);
    };
    CLI::Option* const now = addMode("--now", InstanceAction::playNow, "Play them now, sorted");
    CLI::Option* const next =
        addMode("--next", InstanceAction::playNext, "Play them after the present track, sorted");
    CLI::Option* const later =
        addMode("--later", InstanceAction::playLater, "Play them after all others, sorted");
    next->excludes(now);
    later->excludes(now)->excludes(next);
    openCommand->footer(
        "Without one of the three they are played now, in the order given. A folder stands for\n"
        "the music in it and below.");
  }

  void addControl(CLI::App& app) {
    controlCommand = app.add_subcommand("control", "Command the player that runs");
    controlCommand->require_subcommand(1);
    for (const auto& [name, action] : kControls) {
      CLI::App* const command = controlCommand->add_subcommand(name, describe(action));
      command->callback([this, action = action] { control.action = action; });
      if (action == InstanceAction::status) {
        command->add_flag("--json", control.json, "Print JSON");
      }
    }
    addDevice();
    for (const ControlSetting& setting : controlSettings()) addSetting(setting);
  }

  void addDevice() {
    CLI::App* const command = addWords(kDeviceSetting, "Choose what to play on", "NAME");
    command->footer(
        "A name or UID as 'velorin devices' shows it, several of them to play on all at once (the\n"
        "first sets the clock), or 'default' to follow the system.");
  }

  void addSetting(const ControlSetting& setting) {
    CLI::App* const command =
        addWords(setting.name, std::string(setting.description), std::string(setting.values));
    command->footer("Kept for the next start.");
  }

  /// A command whose name and values are the words of a request.
  CLI::App* addWords(std::string_view name, const std::string& description,
                     const std::string& values) {
    CLI::App* const command = controlCommand->add_subcommand(std::string(name), description);
    command->add_option("VALUE", control.words, values)->required()->type_name(values);
    command->callback([this, name] {
      control.action = InstanceAction::set;
      control.words.insert(control.words.begin(), std::string(name));
      if (const auto problem = problemWithSetting(control.words)) {
        throw CLI::ValidationError(*problem);
      }
    });
    return command;
  }

  void addPath(CLI::App& app) {
    pathCommand = app.add_subcommand("path", "Show what happens to the sound that plays now");
    pathCommand->add_flag("--json", path.json, "Print JSON");
    pathCommand->footer(
        "Each line is a stage on the way from the file to the device, with what is left of the\n"
        "file's quality behind it. What the device does is read back from it.");
  }
};

PlayerGrammar::PlayerGrammar(CLI::App& app) : _fields(std::make_unique<Fields>()) {
  _fields->addRun(app);
  _fields->addOpen(app);
  _fields->addControl(app);
  _fields->addPath(app);
}

PlayerGrammar::~PlayerGrammar() = default;

std::optional<Command> PlayerGrammar::chosen() const {
  if (*_fields->runCommand) return _fields->run;
  if (*_fields->openCommand) return _fields->open;
  if (*_fields->controlCommand) return _fields->control;
  if (*_fields->pathCommand) return _fields->path;
  return std::nullopt;
}

std::vector<std::string> withPlayerCommand(const CLI::App& app, int argc, const char* const* argv) {
  std::vector<std::string> arguments(argv, argv + argc);
  if (arguments.empty()) arguments.emplace_back("velorin");
  if (arguments.size() == 1) {
    arguments.emplace_back("run");
    return arguments;
  }
  const std::string& first = arguments[1];
  const bool isOfProgram = first == "-h" || first == "--help" || first == "--version";
  if (isOfProgram || isCommand(app, first)) return arguments;
  if (first.starts_with('-') || looksLikeFile(first)) {
    arguments.insert(arguments.begin() + 1, "run");
  }
  return arguments;
}

}  // namespace velorin
