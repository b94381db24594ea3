#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <optional>

#include "AudioSetup.h"
#include "Commands.h"
#include "Console.h"
#include "KeyReader.h"
#include "PlayList.h"
#include "ProgramLoop.h"
#include "SignalPathText.h"
#include "SignalWatch.h"
#include "Terminal.h"
#include "TrackSequence.h"
#include "engine/AudioEngine.h"
#include "foundation/EventBus.h"
#include "foundation/Log.h"
#include "foundation/MainThread.h"
#include "foundation/Paths.h"
#include "foundation/Preferences.h"
#include "foundation/SerialQueue.h"
#include "foundation/Text.h"

namespace velorin {
namespace {

constexpr std::chrono::milliseconds kRedrawInterval{250};
constexpr double kSeekSeconds = 5;
constexpr float kVolumeStep = 0.05f;
constexpr std::string_view kKeysHelp =
    "keys: space pause · n next · p previous · ← → 5 s back, forward · ↑ ↓ volume · h keys · "
    "q quit";

/// One run of `velorin play`.
class PlaySession : private TrackSequenceListener {
 public:
  PlaySession(const PlayOptions& options, AudioHardware& hardware, Preferences& preferences,
              std::vector<PlayListEntry> files)
      : _options(options),
        _files(files),
        _console(STDOUT_FILENO),
        _engine(hardware, preferences, _bus),
        _engineQueue("com.velorin.engine"),
        _sequence(_engine, _engineQueue, _bus, std::move(files), *this) {}

  int run(AudioDeviceID device) {
    log::setSink([this](log::Level, std::string_view line) { _console.printError(line); });
    std::optional<std::string> fault;
    _engineQueue.sync([&] {
      applySettings(_options.engine, _engine);
      if (!_options.engine.chain.empty()) fault = applyChainFile(_options.engine.chain, _engine);
      if (device != kNoDevice) _engine.selectOutputDevice(device);
    });
    if (fault) {
      log::setSink({});
      reportError(*fault);
      return kExitFailure;
    }
    attachTerminal();
    const SignalWatch signals({.stop = [this] { quit(); },
                               .suspend = [this] { suspendTerminal(); },
                               .resume = [this] { resumeTerminal(); }});
    _sequence.start(_options.engine.start);
    MainThread::instance().run();
    _redraw.stop();
    _console.clearStatus();
    finishTrack(/*playedOut=*/false);
    log::setSink({});
    return summarise();
  }

 private:
  // --- TrackSequenceListener ---

  void trackStarted(std::size_t index, const FileFacts& file) override {
    ++_played;
    _index = index;
    _file = file;
    const auto paths = pathTexts(_engine.facts());
    if (_console.isInteractive()) {
      _console.print(number(index) + "  " + titleText());
      _console.print("     " + paths.front());
    } else {
      _console.print("playing " + number(index) + ": " + titleText() + ": " + paths.front());
    }
    refresh();
  }

  void trackEnded(std::size_t, bool playedOut) override { finishTrack(playedOut); }

  void trackFailed(std::size_t index, const std::string& reason) override {
    _console.printError("velorin: " + text::pathForDisplay(_files[index].path) + ": " + reason);
  }

  void sequenceEnded(bool outputFailed) override {
    if (outputFailed) {
      _outputFailed = true;
      _console.printError(
          "velorin: no sound from the device: choose another with --device; 'velorin devices' "
          "lists them");
    }
    quit();
  }

  // --- The end of a track and of the run ---

  void finishTrack(bool playedOut) {
    if (!_file) return;
    if (!_console.isInteractive()) {
      _console.print(
          fmt::format("{} {}: {}", playedOut ? "ended" : "left", number(_index), titleText()));
    }
    _file.reset();
    _console.clearStatus();
  }

  void quit() {
    if (_quitting) return;
    _quitting = true;
    stopEngineAndLoop(_engine, _engineQueue);
  }

  int summarise() {
    if (_played == 0) {
      if (!_outputFailed && !_wasAsked && _files.size() > 1) {
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
    if (!_console.isInteractive() || !_file || _quitting) return;
    const char* symbol = _engine.state() == PlaybackState::paused ? "❚❚" : "▶";
    std::string head = fmt::format("{} {} / {}", symbol, timeText(_engine.currentPosition()),
                                   timeText(_engine.duration()));
    if (const float volume = _engine.volume(); volume < 1) {
      head += fmt::format(" · {:.0f} %", std::round(volume * 100));
    }
    _console.setStatus(
        composeStatus(head, titleText(), pathTexts(_engine.facts()), _console.columns()));
  }

  std::string number(std::size_t index) const {
    return fmt::format("{}/{}", index + 1, _sequence.count());
  }

  std::string titleText() const {
    std::string title =
        _file->title.empty() ? text::toValidUTF8(_file->path.stem().native()) : _file->title;
    if (!_file->artist.empty()) title += " — " + _file->artist;
    return text::escapeForTerminal(title);
  }

  // --- Keys ---

  void pressed(Key key) {
    switch (key) {
      case Key::pause:
        return onEngine([this] { _engine.togglePlayPause(); });
      case Key::next:
        return _sequence.next();
      case Key::previous:
        return _sequence.previous();
      case Key::back:
        return seekBy(-kSeekSeconds);
      case Key::forward:
        return seekBy(kSeekSeconds);
      case Key::louder:
        return changeVolume(kVolumeStep);
      case Key::quieter:
        return changeVolume(-kVolumeStep);
      case Key::help:
        return _console.print(kKeysHelp);
      case Key::quit:
        _wasAsked = true;
        return quit();
    }
  }

  void seekBy(double seconds) {
    onEngine([this, seconds] { _engine.seek(std::max(0.0, _engine.currentPosition() + seconds)); });
  }

  void changeVolume(float by) {
    if (_engine.isIntegerOutput()) {
      return _console.print("integer output is not scaled: set the volume on the device");
    }
    onEngine([this, by] {
      // Whole steps, so that going down and up again ends at full volume exactly.
      const float steps = std::round(_engine.volume() / kVolumeStep) + std::copysign(1.0f, by);
      _engine.setVolume(std::clamp(steps * kVolumeStep, 0.0f, 1.0f));
    });
  }

  void onEngine(std::function<void()> task) {
    _engineQueue.async([this, task = std::move(task)] {
      task();
      MainThread::instance().post([this] { refresh(); });
    });
  }

  const PlayOptions& _options;
  const std::vector<PlayListEntry> _files;
  Console _console;
  EventBus _bus;
  AudioEngine _engine;
  SerialQueue _engineQueue;
  TrackSequence _sequence;
  std::optional<terminal::RawMode> _raw;
  std::optional<KeyReader> _keys;
  RepeatingTimer _redraw;

  std::optional<FileFacts> _file;  ///< what is heard now
  std::size_t _index = 0;
  std::size_t _played = 0;
  bool _outputFailed = false;
  bool _wasAsked = false;  ///< the listener quit
  bool _quitting = false;
};

}  // namespace

int runPlay(const PlayOptions& options) {
  log::configure(options.verbose ? log::Level::info : log::Level::warning,
                 /*useJournalIfConnected=*/false);
  PlayList list = expandInputs(options.inputs);
  for (const std::string& problem : list.problems) reportError(problem);
  if (list.entries.empty()) {
    if (list.problems.empty()) reportError("nothing to play: give files or folders");
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
  // A device that is named for one run is not to become the saved one.
  Preferences preferences(device == kNoDevice ? paths::preferencesFile() : std::filesystem::path());
  PlaySession session(options, *audio.hardware, preferences, std::move(list.entries));
  return session.run(device);
}

}  // namespace velorin
