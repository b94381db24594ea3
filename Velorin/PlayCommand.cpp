#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <optional>
#include <random>

#include "AudioSetup.h"
#include "Commands.h"
#include "Console.h"
#include "KeyReader.h"
#include "PlayList.h"
#include "PlayRun.h"
#include "ProgramLoop.h"
#include "SignalPathText.h"
#include "SignalWatch.h"
#include "Terminal.h"
#include "TrackReader.h"
#include "engine/AudioEngine.h"
#include "foundation/EventBus.h"
#include "foundation/Log.h"
#include "foundation/MainThread.h"
#include "foundation/Preferences.h"
#include "foundation/SerialQueue.h"
#include "foundation/Text.h"
#include "library/metadata/TagText.h"
#include "session/PlayerState.h"
#include "shell/ExitDeadline.h"

namespace velorin {
namespace {

constexpr std::chrono::milliseconds kRedrawInterval{250};
/// How long music may wait for the tags of what follows.
constexpr std::chrono::milliseconds kPatience{300};
constexpr std::chrono::hours kAnyTime{24};
constexpr double kSeekSeconds = 5;
constexpr double kVolumeStep = 0.05;
constexpr std::string_view kKeysHelp =
    "keys: space pause · n next · p previous · ← → 5 s back, forward · ↑ ↓ volume · s shuffle · "
    "r repeat · h keys · q quit";

/// A player of one command: it has no session to restore or to store, and counts nothing.
const PlayerState::Options kOneCommand = {
    .restoresSession = false, .storesSession = false, .countsListens = false};

/// One run of `velorin play`.
class PlaySession : private PlayRunListener {
 public:
  PlaySession(const PlayOptions& options, AudioHardware& hardware, TrackReader& reader,
              std::vector<TrackInfo> tracks)
      : _options(options),
        _reader(reader),
        _tracks(std::move(tracks)),
        _console(STDOUT_FILENO),
        _preferences(preferencesOfThisRun()),
        _engine(hardware, *_preferences, _bus),
        _player(_engine, *_preferences, _bus, PlayerServices{}, kOneCommand),
        _run(_player, _bus, *this) {}

  int run(AudioDeviceID device) {
    log::setSink([this](log::Level, std::string_view line) { _console.printError(line); });
    const SignalWatch signals({.stop = [this] { quit(); },
                               .suspend = [this] { suspendTerminal(); },
                               .resume = [this] { resumeTerminal(); }});
    choose(device);
    MainThread::instance().run();
    _redraw.stop();
    _console.clearStatus();
    if (!_fault.empty()) {
      log::setSink({});
      reportError(_fault);
      return kExitFailure;
    }
    if (_heard) trackEnded(*_heard, /*playedOut=*/false);
    log::setSink({});
    return summarise();
  }

 private:
  /// The profile of a device reaches the player on this thread; what was typed counts after it.
  void choose(AudioDeviceID device) {
    _player.engineQueue().async([this, device] {
      if (device != kNoDevice) _engine.selectOutputDevice(device);
      MainThread::instance().post([this] { begin(); });
    });
  }

  void begin() {
    if (_quitting) return;
    if (const auto fault = prepare()) {
      _fault = *fault;
      return quit();
    }
    attachTerminal();
    _run.start(_tracks, firstTrack(), _options.engine.start);
    _reader.start([this](TrackReader::Batch batch) { append(std::move(batch)); });
  }

  std::optional<std::string> prepare() {
    applySettings(_options.engine, _player);
    // What the last session left does not count here: the order is the one that was typed.
    _player.setShuffle(_options.shuffle);
    _player.setRepeatMode(_options.repeat);
    std::optional<std::string> fault;
    _player.engineQueue().sync([&] {
      if (!_options.engine.chain.empty()) fault = applyChainFile(_options.engine.chain, _engine);
    });
    return fault;
  }

  std::size_t firstTrack() const {
    if (!_options.shuffle) return 0;
    std::random_device seed;
    return std::uniform_int_distribution<std::size_t>(0, _tracks.size() - 1)(seed);
  }

  void append(TrackReader::Batch batch) {
    for (const std::string& problem : batch.problems) _console.printError("velorin: " + problem);
    const std::size_t count = _player.timeline().size();
    _player.appendToTimeline(std::move(batch.tracks));
    if (!_waitsForReader) return;
    if (_player.timeline().size() > count) {
      _waitsForReader = false;
      _run.goOn(count);
    } else if (_reader.unread() == 0) {
      quit();
    }
  }

  // --- PlayRunListener ---

  void trackStarted(const TrackInfo& track, std::optional<Join>) override {
    ++_played;
    _heard = track;
    _number =
        fmt::format("{}/{}", _run.numberOf(track), _player.timeline().size() + _reader.unread());
    const std::string path = pathTexts(_engine.facts()).front();
    if (_console.isInteractive()) {
      _console.print(_number + "  " + titleOf(track) + "\n     " + path);
    } else {
      _console.print("playing " + _number + ": " + titleOf(track) + ": " + path);
    }
    refresh();
  }

  void trackEnded(const TrackInfo& track, bool playedOut) override {
    if (!_console.isInteractive()) {
      _console.print(
          fmt::format("{} {}: {}", playedOut ? "ended" : "left", _number, titleOf(track)));
    }
    _heard.reset();
  }

  void trackFailed(const std::string& path, const std::string& reason) override {
    _console.printError("velorin: " + text::pathForDisplay(path) + ": " + reason);
  }

  void runEnded(bool outputFailed) override {
    if (outputFailed) {
      _outputFailed = true;
      _console.printError(
          "velorin: no sound from the device: choose another with --device; 'velorin devices' "
          "lists them");
    } else if (_reader.unread() > 0) {
      _waitsForReader = true;  // faster than its list
      return;
    }
    quit();
  }

  // --- The end of the run ---

  void quit() {
    if (_quitting) return;
    _quitting = true;
    _reader.stop();
    stopEngineAndLoop(_engine, _player.engineQueue());
  }

  int summarise() {
    if (_played == 0) {
      if (!_outputFailed && !_wasAsked && _player.timeline().size() > 1) {
        _console.printError("velorin: nothing could be played: see the lines above");
      }
      return _wasAsked && !_outputFailed ? kExitSuccess : kExitFailure;
    }
    _console.print(fmt::format("played {} {}", _played, _played == 1 ? "track" : "tracks"));
    return _outputFailed ? kExitFailure : kExitSuccess;
  }

  // --- Terminal ---

  void attachTerminal() {
    if (!_console.isInteractive()) return;
    if (::isatty(STDIN_FILENO)) {
      _raw.emplace(STDIN_FILENO);
      _keys.emplace(STDIN_FILENO, [this](Key key) { pressed(key); });
      _console.print(kKeysHelp);
    }
    _redraw.start(kRedrawInterval, [this] { refresh(); });
  }

  void suspendTerminal() {
    _console.clearStatus();
    if (_raw) _raw->suspend();
  }

  void resumeTerminal() {
    if (_raw) _raw->resume();
    refresh();
  }

  void refresh() {
    if (!_console.isInteractive() || !_heard || _quitting) return;
    const char* symbol = _player.state() == PlaybackState::paused ? "❚❚" : "▶";
    std::string head = fmt::format("{} {} / {}", symbol, timeText(_player.livePosition()),
                                   timeText(_engine.duration()));
    if (const double volume = _player.volume(); volume < 1) {
      head += fmt::format(" · {:.0f} %", std::round(volume * 100));
    }
    if (_player.shuffleEnabled()) head += " · shuffle";
    if (_player.repeatMode() != RepeatMode::off) {
      head += fmt::format(" · repeat {}", nameOf(_player.repeatMode()));
    }
    _console.setStatus(
        composeStatus(head, titleOf(*_heard), pathTexts(_engine.facts()), _console.columns()));
  }

  static std::string titleOf(const TrackInfo& info) {
    std::string title = info.track.title;
    if (!info.artist.name.empty() && info.artist.name != kUnknownArtist) {
      title += " — " + info.artist.name;
    }
    return text::escapeForTerminal(title);
  }

  // --- Keys ---

  void pressed(Key key) {
    switch (key) {
      case Key::pause:
        _player.togglePlayPause();
        break;
      case Key::next:
        _run.next();
        break;
      case Key::previous:
        _run.previous();
        break;
      case Key::back:
        seekBy(-kSeekSeconds);
        break;
      case Key::forward:
        seekBy(kSeekSeconds);
        break;
      case Key::louder:
        changeVolume(kVolumeStep);
        break;
      case Key::quieter:
        changeVolume(-kVolumeStep);
        break;
      case Key::shuffle:
        _player.toggleShuffle();
        break;
      case Key::repeat:
        _player.toggleRepeat();
        break;
      case Key::help:
        _console.print(kKeysHelp);
        break;
      case Key::quit:
        _wasAsked = true;
        return quit();
    }
    refreshAfterEngineCalls();
  }

  void seekBy(double seconds) { _player.seek(std::max(0.0, _player.livePosition() + seconds)); }

  void changeVolume(double by) {
    if (_engine.isIntegerOutput()) {
      return _console.print("integer output is not scaled: set the volume on the device");
    }
    // Whole steps, so that going down and up again ends at full volume exactly.
    const double steps = std::round(_player.volume() / kVolumeStep) + std::copysign(1.0, by);
    _player.setVolume(std::clamp(steps * kVolumeStep, 0.0, 1.0));
  }

  void refreshAfterEngineCalls() {
    _player.engineQueue().async([this] { MainThread::instance().post([this] { refresh(); }); });
  }

  const PlayOptions& _options;
  TrackReader& _reader;
  const std::vector<TrackInfo> _tracks;  ///< that were read before the start
  Console _console;
  EventBus _bus;
  const std::unique_ptr<Preferences> _preferences;
  AudioEngine _engine;
  PlayerState _player;
  PlayRun _run;
  std::optional<terminal::RawMode> _raw;
  std::optional<KeyReader> _keys;
  RepeatingTimer _redraw;

  std::optional<TrackInfo> _heard;  ///< what is heard now
  std::string _number;              ///< its place among how many
  std::size_t _played = 0;
  bool _outputFailed = false;
  bool _wasAsked = false;        ///< the listener quit
  bool _waitsForReader = false;  ///< all that was read has been played
  bool _quitting = false;
  std::string _fault;  ///< why nothing can be played; empty when it can
};

}  // namespace

int runPlay(const PlayOptions& options) {
  log::configure(options.verbose ? log::Level::info : log::Level::warning,
                 /*useJournalIfConnected=*/false);
  PlayList list = expandInputs(options.inputs);
  for (const std::string& problem : list.problems) reportError(problem);
  ExitDeadline deadline;
  // A random order is one of all tracks.
  TrackReader reader(std::move(list.entries));
  TrackReader::Batch first = reader.readFor(options.shuffle ? kAnyTime : kPatience);
  for (const std::string& problem : first.problems) reportError(problem);
  if (first.tracks.empty()) {
    if (list.problems.empty() && first.problems.empty()) {
      reportError("nothing to play: give files or folders");
    }
    return kExitFailure;
  }
  const AudioHardwareChoice audio = createAudioHardware(options.audio);
  if (!audio.notice.empty()) reportError(audio.notice);
  if (!audio.hardware) return kExitFailure;
  AudioDeviceID device = kNoDevice;
  if (!options.deviceUID.empty()) {
    device = findDevice(*audio.hardware, options.deviceUID);
    if (device == kNoDevice) {
      reportError("there is no device '" + options.deviceUID + "': 'velorin devices' lists them");
      return kExitFailure;
    }
  }
  PlaySession session(options, *audio.hardware, reader, std::move(first.tracks));
  const int exitCode = session.run(device);
  deadline.setStep("a file that is being read does not answer");
  deadline.start(kShutdownGrace);
  return exitCode;
}

}  // namespace velorin
