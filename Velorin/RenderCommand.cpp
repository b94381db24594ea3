#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <set>

#include "AudioSetup.h"
#include "Commands.h"
#include "Console.h"
#include "EventLog.h"
#include "FileFacts.h"
#include "PlayList.h"
#include "PlayRun.h"
#include "ProgramLoop.h"
#include "SignalPathText.h"
#include "SignalWatch.h"
#include "WavRecorder.h"
#include "engine/AudioEngine.h"
#include "foundation/EventBus.h"
#include "foundation/Log.h"
#include "foundation/MainThread.h"
#include "foundation/Preferences.h"
#include "foundation/SerialQueue.h"
#include "foundation/Text.h"
#include "platform/audio/virtual/VirtualAudioHardware.h"
#include "session/PlayerState.h"

namespace velorin {
namespace fs = std::filesystem;
namespace {

constexpr std::chrono::milliseconds kRedrawInterval{250};
constexpr std::chrono::milliseconds kSilentPullInterval{2};
/// At 768 kHz a buffer still holds more than the 40 ms that the engine asks for.
constexpr std::uint32_t kBufferMax = 65536;
constexpr std::uint32_t kBufferMin = 64;
constexpr std::uint32_t kBuffer = 4096;
const PlayerState::Options kOneCommand = {
    .restoresSession = false, .storesSession = false, .countsListens = false};

/// A track to render, and its file.
struct RenderTrack {
  TrackInfo info;
  FileFacts file;

  /// Frames that the track has at least at that rate in Hz: a sheet's bounds, and the end of sound
  /// at another rate, fall anywhere between frames.
  double leastFrames(double rate) const {
    const Track& track = info.track;
    if (track.cueStartTime) return std::floor(track.duration * rate) - 1;
    if (rate == file.sampleRate) return static_cast<double>(file.totalFrames);
    return std::floor(file.duration() * rate) - 1;
  }
};

/// The device to play on: as described on the command line, else one that takes every file as it
/// is.
VirtualDeviceDescription describeDevice(const RenderOptions& options,
                                        const std::vector<RenderTrack>& tracks) {
  std::vector<double> rates = options.deviceRates;
  std::uint32_t channels = 2;
  std::set<double> all = {8000,   11025,  12000,  16000,  22050, 24000,  32000,
                          44100,  48000,  64000,  88200,  96000, 128000, 176400,
                          192000, 352800, 384000, 705600, 768000};
  for (const RenderTrack& track : tracks) {
    all.insert(track.file.sampleRate);
    channels = std::max(channels, track.file.channels);
  }
  if (rates.empty()) rates.assign(all.begin(), all.end());

  VirtualDeviceDescription device;
  device.uid = "velorin.render";
  device.name = "WAV file";
  device.rates.clear();
  for (const double rate : rates) device.rates.push_back({rate, rate});
  // The device begins at the first file's rate: no wait for a switch that nobody hears.
  const double first = tracks.front().file.sampleRate;
  device.nominalRate =
      std::find(rates.begin(), rates.end(), first) != rates.end() ? first : rates.front();
  const std::uint32_t largest = options.deviceBufferMax > 0 ? options.deviceBufferMax : kBufferMax;
  device.bufferRange = {std::min(kBufferMin, largest), largest};
  device.bufferFrames = std::min(kBuffer, largest);
  device.channels = channels;
  device.physicalFormats = {{16, false, channels}, {24, false, channels}, {32, false, channels}};
  device.clock = VirtualClock::unpaced;
  return device;
}

/// One run of `velorin render`.
class RenderSession : private PlayRunListener {
 public:
  RenderSession(const RenderOptions& options, std::vector<RenderTrack> tracks)
      : _options(options),
        _tracks(std::move(tracks)),
        _console(STDERR_FILENO),
        _recorder(std::make_shared<WavRecorder>(options.output, paths(), [this] { onFailure(); })),
        _device(_hardware.addDevice(describeDevice(options, _tracks))),
        _engine(_hardware, _preferences, _bus),
        _holdAtEnd(_bus.subscribe<PlayNextTrack>(Delivery::mainThread,
                                                 [this](const PlayNextTrack&) { hold(); })),
        _player(_engine, _preferences, _bus, PlayerServices{}, kOneCommand),
        _run(_player, _bus, *this) {
    _hardware.setRecorder(_device, _recorder);
    _hardware.setPullGate(_device, [this](std::uint32_t& frames) { return mayPull(frames); });
  }

  int run() {
    log::setSink([this](log::Level, std::string_view line) { _console.printError(line); });
    const int exitCode = openEvents() ? render() : kExitFailure;
    log::setSink({});
    return exitCode;
  }

 private:
  /// The device's clock, on its thread: as fast as the engine delivers, while a track runs that was
  /// announced and has its effects. A buffer ends where a joined track begins, so that every
  /// announcement falls on its track's first frame. Once the last track is over the engine needs a
  /// moment to notice; meanwhile the device does not race through silence.
  bool mayPull(std::uint32_t& frames) {
    if (!_trackRuns) return false;
    // A fill thread that waits for a wish leaves a second in the ring: less than the largest
    // buffer.
    frames = std::min(frames, kBuffer);
    bool isReady = _engine.canRender(frames);
    // Asked in this order: what was ready before a join was made lies before it.
    const std::int64_t left = _engine.gaplessCountdown();
    // It is heard, and that is being told.
    if (left <= 0 && _engine.gaplessTransitionPending()) return false;
    if (left > 0 && left < frames) {
      frames = static_cast<std::uint32_t>(left);
      isReady = _engine.canRender(frames);
    }
    // Once more: the announcement may have come and gone since the first look.
    if (!isReady || !_trackRuns) return false;
    const auto now = std::chrono::steady_clock::now();
    if (_recorder->holdsSilence() && now < _lastPull + kSilentPullInterval) return false;
    _lastPull = now;
    _recorder->expect(frames);
    return true;
  }

  /// Until the next announcement.
  void hold() {
    _trackRuns = false;
    ++_announcement;
  }

  bool openEvents() {
    if (_options.events.empty()) return true;
    auto made =
        EventLog::create(_options.events, _bus, [this] { return _recorder->settledFrames(); });
    if (!made) {
      reportError(made.error().text);
      return false;
    }
    _events = std::move(made).value();
    return true;
  }

  int render() {
    applySettings(_options.engine, _player);
    std::optional<std::string> fault;
    _player.engineQueue().sync([&] {
      if (!_options.engine.chain.empty()) fault = applyChainFile(_options.engine.chain, _engine);
    });
    if (fault) {
      reportError(*fault);
      return kExitFailure;
    }
    const SignalWatch signals({.stop = [this] { interrupt(); },
                               .suspend = [this] { _console.clearStatus(); },
                               .resume = {}});
    if (_console.isInteractive()) _redraw.start(kRedrawInterval, [this] { refresh(); });
    const auto begin = std::chrono::steady_clock::now();
    _run.start(infos(), 0, _options.engine.start);
    MainThread::instance().run();
    _redraw.stop();
    _console.clearStatus();
    return finish(std::chrono::steady_clock::now() - begin);
  }

  /// Gives the files their names, unless the run came to nothing.
  int finish(std::chrono::duration<double> took) {
    if (_interrupted) {
      reportError("interrupted: nothing was written");
      return kExitFailure;
    }
    if (_recorder->finish()) {
      for (const fs::path& file : _recorder->files()) {
        fmt::print("{}\n", text::pathForDisplay(file));
      }
      std::fflush(stdout);
      log::line("ℹ️ Rendered {} frames in {:.2f} s", _recorder->frames(), took.count());
    } else {
      _failed = true;
    }
    if (const std::string text = _recorder->errorText(); !text.empty()) reportError(text);
    if (_events && !_events->finish()) {
      reportError(_events->error().text);
      _failed = true;
    }
    return _failed ? kExitFailure : kExitSuccess;
  }

  // --- PlayRunListener ---

  void trackStarted(const TrackInfo& track, std::optional<Join> join) override {
    const PlaybackFacts facts = _engine.facts();
    _isResampled = facts.resampledTo > 0;
    _heardSince = _recorder->settledFrames();
    _expected = 0;
    const auto known = std::find_if(_tracks.begin(), _tracks.end(), [&](const RenderTrack& each) {
      return isSameItem(each.info, track);
    });
    if (known != _tracks.end()) _expected = expectedFrames(*known, join, facts);
    // Once its effects are set, and everybody who follows the events has heard of it.
    _player.engineQueue().async([this, number = _announcement] {
      MainThread::instance().post([this, number] {
        if (number == _announcement) _trackRuns = true;
      });
    });
  }

  void trackEnded(const TrackInfo& track, bool playedOut) override {
    hold();
    const std::uint64_t frames = _recorder->settledFrames() - _heardSince;
    // A resampler keeps its tail, so its count tells nothing.
    if (!playedOut || _isResampled || static_cast<double>(frames) >= _expected) return;
    complain(track.track.filePath,
             fmt::format("ends early, after {} of {:.0f} samples; copy it again from its source",
                         frames, _expected));
  }

  void trackFailed(const std::string& path, const std::string& reason) override {
    complain(path, reason);
  }

  void runEnded(bool outputFailed) override {
    if (outputFailed) {
      complain({}, "the virtual device did not start: run with --verbose to see why");
    }
    quit();
  }

  double expectedFrames(const RenderTrack& track, std::optional<Join> join,
                        const PlaybackFacts& facts) const {
    // Of DSD the engine chooses the rate.
    const double rate = facts.dsdRate > 0 ? facts.clientFormat.sampleRate : track.file.sampleRate;
    double skipped = 0;
    // The start is kept in microseconds, so it may fall a few frames to either side.
    if (_recorder->frames() == 0 && _options.engine.start) {
      skipped = std::ceil((*_options.engine.start + 2e-6) * rate);
    }
    // A track is told of where its crossfade is over.
    if (join == Join::crossfade) skipped = std::ceil(_player.crossfadeDuration() * rate) + 1;
    return std::max(0.0, track.leastFrames(rate) - skipped);
  }

  void complain(const std::string& path, const std::string& reason) {
    _failed = true;
    _console.printError("velorin: " + (path.empty() ? "" : text::pathForDisplay(path) + ": ") +
                        reason);
  }

  // --- The end ---

  /// On the device's thread: a file cannot be written.
  void onFailure() {
    MainThread::instance().post([this] {
      _failed = true;
      quit();
    });
  }

  void interrupt() {
    _interrupted = true;
    quit();
  }

  void quit() {
    if (std::exchange(_quitting, true)) return;
    stopEngineAndLoop(_engine, _player.engineQueue());
  }

  void refresh() {
    double total = 0;
    for (const RenderTrack& track : _tracks) total += track.leastFrames(track.file.sampleRate);
    const double done = static_cast<double>(_recorder->frames());
    _console.setStatus(
        total <= 0 ? fmt::format("rendering: {} frames", _recorder->frames())
                   : fmt::format("rendering: {:.0f} %", std::min(100.0, 100 * done / total)));
  }

  std::vector<fs::path> paths() const {
    std::vector<fs::path> paths;
    for (const RenderTrack& track : _tracks) paths.emplace_back(track.file.path);
    return paths;
  }

  std::vector<TrackInfo> infos() const {
    std::vector<TrackInfo> infos;
    for (const RenderTrack& track : _tracks) infos.push_back(track.info);
    return infos;
  }

  const RenderOptions& _options;
  const std::vector<RenderTrack> _tracks;
  Console _console;
  EventBus _bus;
  Preferences _preferences;  ///< in memory: a rendering depends on its command line alone
  std::shared_ptr<WavRecorder> _recorder;
  VirtualAudioHardware _hardware;
  AudioDeviceID _device;
  AudioEngine _engine;
  /// Before the player, which starts the next track at the same event: else that one could be
  /// rendered before others hear that the last one is over.
  EventBus::Subscription _holdAtEnd;
  PlayerState _player;
  PlayRun _run;
  std::unique_ptr<EventLog> _events;
  RepeatingTimer _redraw;

  std::atomic<bool> _trackRuns = false;
  std::uint64_t _announcement = 0;                    ///< main thread
  std::chrono::steady_clock::time_point _lastPull{};  ///< device thread

  std::uint64_t _heardSince = 0;  ///< frame at which the track began
  double _expected = 0;           ///< frames that it has at least
  bool _isResampled = false;
  bool _failed = false;
  bool _interrupted = false;
  bool _quitting = false;
};

}  // namespace

int runRender(const RenderOptions& options) {
  log::configure(options.verbose ? log::Level::info : log::Level::warning,
                 /*useJournalIfConnected=*/false);
  const PlayList list = expandInputs(options.inputs);
  for (const std::string& problem : list.problems) reportError(problem);
  bool isWhole = list.problems.empty();
  std::vector<RenderTrack> tracks;
  for (const PlayListEntry& entry : list.entries) {
    auto file = readFileFacts(entry.path);
    if (!file) {
      reportError(text::pathForDisplay(entry.path) + ": " + file.error().text);
      isWhole = false;
      continue;
    }
    std::error_code none;
    if (fs::equivalent(entry.path, options.output, none)) {
      reportError(text::pathForDisplay(options.output) +
                  ": is one of the files to render: choose another name");
      return kExitFailure;
    }
    tracks.push_back({trackOf(entry), std::move(file).value()});
  }
  if (tracks.empty()) return kExitFailure;
  RenderSession session(options, std::move(tracks));
  const int exitCode = session.run();
  return isWhole ? exitCode : kExitFailure;
}

}  // namespace velorin
