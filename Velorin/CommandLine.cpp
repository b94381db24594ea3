#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <cmath>
#include <map>

#include "ChoiceOption.h"
#include "Options.h"
#include "PlayerGrammar.h"
#include "TagArguments.h"

namespace velorin {
namespace {

constexpr const char* kPlayable = "Files, folders, CUE sheets and M3U playlists, in their order";
constexpr const char* kVersionText = "velorin " VELORIN_VERSION "\n";

/// Accepts finite numbers from `low` to `high`; a plain range lets NaN pass.
CLI::Validator finite(double low, double high) {
  return CLI::Validator(
      [low, high](std::string& text) -> std::string {
        double value = 0;
        if (!CLI::detail::lexical_cast(text, value) || !(value >= low && value <= high)) {
          return fmt::format("{} is not a number from {:g} to {:g}", text, low, high);
        }
        return {};
      },
      "");
}

CLI::Validator rate() {
  return finite(8000, 768000);
}

/// Binds the options to fields that outlive the parse.
class Grammar {
 public:
  Grammar() : _app("Velorin plays music files bit for bit, without gaps.", "velorin") {
    _app.set_version_flag("--version", kVersionText, "Print the version and exit");
    _app.require_subcommand(0, 1);
    _app.footer(
        "Without a command the player starts and plays the files that are given; where it runs\n"
        "already, it gets them.\n\n"
        "Examples:\n"
        "  velorin ~/Music/Album\n"
        "  velorin open --next track.flac\n"
        "  velorin control play-pause\n"
        "  velorin play ~/Music/Album --exclusive --integer\n"
        "  velorin render track.flac -o track.wav --integer");
    _player.emplace(_app);
    addPlay();
    addRender();
    addDevices();
    addInfo();
    addLibrary();
    addScan();
    addSearch();
    addPlaylist();
    addDsp();
    addTag();
  }

  Command parse(int argc, const char* const* argv) {
    const std::vector<std::string> arguments = withPlayerCommand(_app, argc, argv);
    try {
      // Its parser takes the arguments from the back, without the program's name.
      _app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend() - 1));
    } catch (const CLI::CallForVersion&) {
      return ShowText{kVersionText};
    } catch (const CLI::CallForHelp&) {
      return ShowText{_app.help()};
    } catch (const CLI::ParseError& error) {
      return WrongUsage{oneLine(error.what()) + ": see '" + helpCommand() + "'"};
    }
    if (auto chosen = _player->chosen()) return std::move(*chosen);
    if (*_playCommand) return _play;
    if (*_renderCommand) return _render;
    if (*_devicesCommand) return _devices;
    if (*_infoCommand) return _info;
    if (*_libraryListCommand) return _libraryList;
    if (*_libraryAddCommand || *_libraryRemoveCommand) return libraryFolders();
    if (*_scanCommand) return _scan;
    if (*_searchCommand) return search();
    if (*_playlistCommand) return _playlist;
    if (*_dspCommand) return _dsp;
    if (*_tagCommand) return tag();
    return ShowText{_app.help()};
  }

 private:
  void addPlay() {
    _playCommand = _app.add_subcommand("play", "Play in the terminal");
    addInputs(_playCommand, _play.inputs, kPlayable);
    addAudioOption(_playCommand, _play.audio);
    _playCommand->add_option("--device", _play.deviceUID, "Device to play on: its UID or its name")
        ->type_name("UID");
    addEngine(_playCommand, _play.engine);
    static const std::map<std::string, RepeatMode> kRepeats = {
        {"off", RepeatMode::off}, {"all", RepeatMode::all}, {"one", RepeatMode::one}};
    static const std::map<std::string, VolumeMode> kVolumeModes = {
        {"software", VolumeMode::software},
        {"hardware", VolumeMode::hardware},
        {"fixed", VolumeMode::fixed}};
    addChoice(_playCommand, "--volume-mode", _play.engine.volumeMode, kVolumeModes,
              "Where the volume is applied: software, hardware or fixed");
    _playCommand->add_flag("--shuffle", _play.shuffle, "Play in a random order");
    addChoice(_playCommand, "--repeat", _play.repeat, kRepeats,
              "What follows the last track: off, all or one");
    _playCommand->add_flag("-v,--verbose", _play.verbose, "Show every line of the log");
  }

  void addRender() {
    _renderCommand = _app.add_subcommand(
        "render", "Write what a device would be given into WAV files, as fast as possible");
    addInputs(_renderCommand, _render.inputs, kPlayable);
    _renderCommand->add_option("-o,--output", _render.output, "WAV file to write")
        ->required()
        ->type_name("OUT.wav");
    addEngine(_renderCommand, _render.engine);
    _renderCommand
        ->add_option("--device-rates", _render.deviceRates,
                     "Rates that the device offers, in Hz, separated by commas "
                     "[all that the files need]")
        ->delimiter(',')
        ->check(rate())
        ->type_name("LIST");
    _renderCommand
        ->add_option("--device-buffer-max", _render.deviceBufferMax,
                     "Largest buffer of the device in frames")
        ->check(CLI::Range(64, 1 << 20))
        ->type_name("N");
    _renderCommand
        ->add_option("--events", _render.events,
                     "Write each event with the device frame at which it fell")
        ->type_name("FILE.jsonl");
    _renderCommand->add_flag("-v,--verbose", _render.verbose, "Show every line of the log");
  }

  void addDevices() {
    _devicesCommand = _app.add_subcommand("devices", "List output devices");
    addAudioOption(_devicesCommand, _devices.audio);
    _devicesCommand->add_flag("--json", _devices.json, "Print JSON");
  }

  void addInfo() {
    _infoCommand = _app.add_subcommand("info", "Show what files hold");
    addInputs(_infoCommand, _info.inputs, "Files to look at");
    _infoCommand->add_flag("--json", _info.json, "Print JSON");
  }

  void addLibrary() {
    CLI::App* library = _app.add_subcommand("library", "Look after the music library");
    library->require_subcommand(1);
    _libraryListCommand =
        library->add_subcommand("list", "Show what the library holds, and its folders");
    _libraryListCommand->add_flag("--json", _libraryList.json, "Print JSON");
    _libraryAddCommand = library->add_subcommand("add", "Add music folders and scan them");
    addFolders(_libraryAddCommand);
    addScanDisplay(_libraryAddCommand, _libraryFolders.json, _libraryFolders.verbose);
    _libraryRemoveCommand = library->add_subcommand(
        "remove", "Take music folders, and their tracks, out of the library; files stay");
    addFolders(_libraryRemoveCommand);
    _libraryRemoveCommand->add_flag("--json", _libraryFolders.json, "Print JSON");
  }

  void addFolders(CLI::App* command) {
    command->add_option("FOLDER", _libraryFolders.folders, "Music folders")
        ->required()
        ->type_name("...");
  }

  void addScan() {
    _scanCommand = _app.add_subcommand("scan", "Look for what changed in the music folders");
    _scanCommand->add_flag("--full", _scan.full, "Read every file anew");
    addScanDisplay(_scanCommand, _scan.json, _scan.verbose);
    _scanCommand->footer(
        "What the listener did (plays, ratings, playlists) is kept. A folder that is not there\n"
        "now keeps its tracks. An interrupted scan keeps what it has read; the next one goes on.");
  }

  static void addScanDisplay(CLI::App* command, bool& json, bool& verbose) {
    command->add_flag("--json", json, "Print a summary as JSON");
    command->add_flag("-v,--verbose", verbose, "Show every line of the log and all failed files");
  }

  LibraryFoldersOptions libraryFolders() const {
    using Action = LibraryFoldersOptions::Action;
    LibraryFoldersOptions options = _libraryFolders;
    options.action = *_libraryAddCommand ? Action::add : Action::remove;
    return options;
  }

  void addSearch() {
    constexpr std::int64_t kMost = 1'000'000'000;
    _searchCommand =
        _app.add_subcommand("search", "Find tracks, artists, albums and playlists in the library");
    _searchCommand->add_option("TEXT", _searchWords, "Beginnings of the words to look for")
        ->required()
        ->type_name("...");
    _searchCommand->add_flag("--json", _search.json, "Print JSON");
    _searchCommand->add_option("--limit", _search.limit, "Show at most so many tracks [50]")
        ->check(CLI::Range(std::int64_t{1}, kMost))
        ->type_name("N");
    _searchCommand->add_option("--offset", _search.offset, "Leave out the first N tracks")
        ->check(CLI::Range(std::int64_t{0}, kMost))
        ->type_name("N");
    _searchCommand->footer(
        "A track is found when every word of TEXT begins a word of its title, artist or album;\n"
        "artists, albums and playlists by a part of their name, with the first page only.\n"
        "To find nothing is no error: the exit code is 0.");
  }

  void addPlaylist() {
    using Action = PlaylistOptions::Action;
    _playlistCommand = _app.add_subcommand("playlist", "Look after the playlists of the library");
    _playlistCommand->require_subcommand(1);
    const auto add = [this](const char* name, const char* description, Action action) {
      CLI::App* command = _playlistCommand->add_subcommand(name, description);
      command->callback([this, action] { _playlist.action = action; });
      return command;
    };
    const auto addName = [this](CLI::App* command) {
      command->add_option("NAME", _playlist.name, "Name of the playlist")
          ->required()
          ->type_name("");
    };
    CLI::App* list = add("list", "List the playlists", Action::list);
    CLI::App* show = add("show", "List the tracks of a playlist", Action::show);
    for (CLI::App* command : {list, show}) {
      command->add_flag("--json", _playlist.json, "Print JSON");
    }
    addName(show);
    CLI::App* import = add("import", "Make playlists of M3U files", Action::importFiles);
    addInputs(import, _playlist.files, "M3U files to import");
    import->footer(
        "A playlist gets the tracks of the file that the library holds: by their paths, else by\n"
        "the names of their files.");
    CLI::App* exported = add("export", "Write a playlist as an M3U file", Action::exportFile);
    addName(exported);
    exported->add_option("-o,--output", _playlist.output, "File to write [standard output]")
        ->type_name("FILE.m3u8");
    addName(add("delete", "Delete a playlist; the tracks stay", Action::remove));
    CLI::App* create = add("create", "Create a smart playlist", Action::create);
    addName(create);
    create->add_option("--rules", _playlist.rules, "Rules that choose its tracks")
        ->required()
        ->type_name("FILE.json");
    create->footer(
        "A file of rules is JSON, such as\n"
        "  {\"matchMode\": \"all\", \"sortAscending\": true, \"sortBy\": \"random\", \"limit\": "
        "50,\n"
        "   \"rules\": [{\"id\": \"1B4E28BA-2FA1-41D2-883F-0016D3CCA427\", \"field\": \"genre\",\n"
        "              \"op\": \"contains\", \"value\": {\"string\": {\"_0\": \"Jazz\"}}}]}");
  }

  void addDsp() {
    using Action = DspOptions::Action;
    _dspCommand = _app.add_subcommand("dsp", "Show the effects and what they do");
    _dspCommand->require_subcommand(1);
    const auto add = [this](const char* name, const char* description, Action action) {
      CLI::App* command = _dspCommand->add_subcommand(name, description);
      command->add_flag("--json", _dsp.json, "Print JSON");
      command->callback([this, action] { _dsp.action = action; });
      return command;
    };
    add("list", "List the effects and what can be set", Action::list);
    add("presets", "List the presets of the equalizer", Action::presets);
    add("profiles", "List the headphone profiles", Action::profiles);
    CLI::App* response =
        add("response", "Show the frequency response of a chain", Action::response);
    addChain(response, _dsp.chain)->required();
    response->add_option("--png", _dsp.png, "Draw it into a picture")
        ->type_name("OUT.png")
        ->excludes("--json");
    response->add_option("--rate", _dsp.sampleRate, "Sample rate [44100]")
        ->check(rate())
        ->type_name("HZ");
    response->footer(
        "A chain file is JSON, such as\n"
        "  {\"entries\": [{\"effectType\": \"equalizer\"}, {\"effectType\": \"crossfeed\"}],\n"
        "   \"parameters\": {\"equalizer\": {\"preset\": \"Rock\"},\n"
        "                  \"crossfeed\": {\"cutoffFrequency\": 650}}}\n"
        "What can be set is told by 'velorin dsp list'. In place of a preset the equalizer\n"
        "takes bands, in Hz and dB, of the types 0 peak, 1 low shelf, 2 high shelf, 3 low-pass\n"
        "and 4 high-pass:\n"
        "  \"bands\": [{\"frequency\": 100, \"gain\": -3, \"q\": 1.4, \"filterType\": 0}]");
  }

  static CLI::Option* addChain(CLI::App* command, std::filesystem::path& chain) {
    return command->add_option("--chain", chain, "Effect chain, see 'velorin dsp response --help'")
        ->type_name("FILE.json");
  }

  void addTag() {
    _tagCommand = _app.add_subcommand("tag", "Write tags into files, and into the library");
    addInputs(_tagCommand, _tag.inputs, "Files to write");
    // Once for each occurrence, so that a value may hold anything.
    _tagCommand->add_option("--set", _tagSets, "Give a tag a value: " + tagKeyList())
        ->allow_extra_args(false)
        ->type_name("KEY=VALUE");
    _tagCommand->add_option("--clear", _tagClears, "Remove a tag")
        ->allow_extra_args(false)
        ->type_name("KEY");
    _tagCommand->add_flag("--json", _tag.json, "Print JSON");
    _tagCommand->footer(
        "Tags that are not named stay. The sound stays as it is, bit for bit: a file is replaced\n"
        "by its edited copy only after the two were compared. Files that are in the library are\n"
        "changed there too.");
  }

  Command tag() const {
    TagOptions options = _tag;
    std::optional<std::string> wrong;
    for (std::size_t i = 0; !wrong && i < _tagSets.size(); ++i) {
      wrong = addSet(_tagSets[i], options.changes);
    }
    for (std::size_t i = 0; !wrong && i < _tagClears.size(); ++i) {
      wrong = addClear(_tagClears[i], options.changes);
    }
    if (!wrong && options.changes == TagChanges{}) {
      wrong = "nothing is to be changed: add --set KEY=VALUE or --clear KEY";
    }
    if (wrong) return WrongUsage{*wrong + ": see 'velorin tag --help'"};
    return options;
  }

  SearchOptions search() const {
    SearchOptions options = _search;
    for (const std::string& word : _searchWords) {
      options.text += (options.text.empty() ? "" : " ") + word;
    }
    return options;
  }

  static void addInputs(CLI::App* command, std::vector<std::filesystem::path>& inputs,
                        const char* description) {
    command->add_option("FILE", inputs, description)->required()->type_name("...");
  }

  void addEngine(CLI::App* command, EngineOptions& engine) {
    static const std::map<std::string, SampleRateStrategy> kNames = {
        {"native", SampleRateStrategy::native},
        {"powerOf2", SampleRateStrategy::powerOf2},
        {"max", SampleRateStrategy::max},
        {"fixed", SampleRateStrategy::fixed}};
    command->add_flag("--exclusive", engine.exclusive, "Keep other programs off the device");
    command->add_flag("--integer", engine.integer, "Give the device integers instead of floats");
    addChoice(command, "--strategy", engine.strategy, kNames,
              "Output rate: native, powerOf2, max or fixed");
    command->add_option("--multiplier", engine.multiplier, "Upsampling factor of powerOf2")
        ->check(CLI::Range(2, 64))
        ->type_name("N");
    command->add_option("--fixed-rate", engine.fixedRate, "Rate of the strategy fixed")
        ->check(rate())
        ->type_name("HZ");
    command->add_flag("--force-high-rate", engine.forceHighRate,
                      "Take a high rate although the device's buffer is short there");
    command->add_flag("--memory", engine.memory, "Read each track into RAM before it plays");
    command->add_option("--memory-limit", engine.memoryLimit, "Largest file to read into RAM [256]")
        ->check(CLI::Range(1, 1 << 20))
        ->type_name("MIB");
    command->add_option("--start", engine.start, "Begin so far into the first file")
        ->check(finite(0, 1e9))
        ->type_name("SECONDS");
    command->add_flag("--no-gapless", engine.noGapless, "Stop between tracks");
    command->add_option("--crossfade", engine.crossfade, "Fade tracks into each other; 0 for not")
        ->check(finite(0, 60))
        ->type_name("SECONDS");
    command->add_flag("--no-album-crossfade", engine.noAlbumCrossfade,
                      "Do not fade neighbours of one album into each other");
    addChain(command, engine.chain);
    command->add_option("--volume", engine.volume, "Software volume, 0 to 1")
        ->check(finite(0, 1))
        ->type_name("0..1");
  }

  std::string helpCommand() const {
    const auto used = _app.get_subcommands();
    return used.empty() ? "velorin --help" : "velorin " + used.front()->get_name() + " --help";
  }

  static std::string oneLine(std::string text) {
    for (char& c : text) {
      if (c == '\n') c = ' ';
    }
    return text;
  }

  CLI::App _app;
  std::optional<PlayerGrammar> _player;
  CLI::App* _playCommand = nullptr;
  CLI::App* _renderCommand = nullptr;
  CLI::App* _devicesCommand = nullptr;
  CLI::App* _infoCommand = nullptr;
  CLI::App* _libraryListCommand = nullptr;
  CLI::App* _libraryAddCommand = nullptr;
  CLI::App* _libraryRemoveCommand = nullptr;
  CLI::App* _scanCommand = nullptr;
  CLI::App* _searchCommand = nullptr;
  PlayOptions _play;
  RenderOptions _render;
  DevicesOptions _devices;
  InfoOptions _info;
  LibraryListOptions _libraryList;
  LibraryFoldersOptions _libraryFolders;
  ScanOptions _scan;
  SearchOptions _search;
  CLI::App* _playlistCommand = nullptr;
  PlaylistOptions _playlist;
  CLI::App* _dspCommand = nullptr;
  DspOptions _dsp;
  std::vector<std::string> _searchWords;
  CLI::App* _tagCommand = nullptr;
  TagOptions _tag;
  std::vector<std::string> _tagSets;
  std::vector<std::string> _tagClears;
};

}  // namespace

Command parseCommandLine(int argc, const char* const* argv) {
  Grammar grammar;
  return grammar.parse(argc, argv);
}

}  // namespace velorin
