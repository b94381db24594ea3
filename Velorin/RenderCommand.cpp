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
#include "PlayList.h"
#include "ProgramLoop.h"
#include "SignalPathText.h"
#include "SignalWatch.h"
#include "TrackSequence.h"
#include "WavRecorder.h"
#include "engine/AudioEngine.h"
#include "foundation/EventBus.h"
#include "foundation/Log.h"
#include "foundation/MainThread.h"
#include "foundation/Preferences.h"
#include "foundation/SerialQueue.h"
#include "foundation/Text.h"
#include "platform/audio/virtual/VirtualAudioHardware.h"

namespace velorin {
namespace fs = std::filesystem;
namespace {

constexpr std::chrono::milliseconds kRedrawInterval{250};
constexpr std::chrono::milliseconds kSilentPullInterval{2};
/// At 768 kHz a buffer still holds more than the 40 ms that the engine asks for.
constexpr std::uint32_t kBufferMax = 65536;
constexpr std::uint32_t kBufferMin = 64;
constexpr std::uint32_t kBuffer = 4096;

/// The device to play on: as described on the command line, else one that takes every file as it
/// is.
VirtualDeviceDescription describeDevice(const RenderOptions& options,
                                        const std::vector<FileFacts>& files) {
  std::vector<double> rates = options.deviceRates;
  std::uint32_t channels = 2;
  std::set<double> all = {8000,   11025,  12000,  16000,  22050, 24000,  32000,
                          44100,  48000,  64000,  88200,  96000, 128000, 176400,
                          192000, 352800, 384000, 705600, 768000};
  for (const FileFacts& file : files) {
    all.insert(file.sampleRate);
    channels = std::max(channels, file.channels);
  }
  if (rates.empty()) rates.assign(all.begin(), all.end());

  VirtualDeviceDescription device;
  device.uid = "velorin.render";
  device.name = "WAV file";
  device.rates.clear();
  for (const double rate : rates) device.rates.push_back({rate, rate});
  // The device begins at the first file's rate: no wait for a switch that nobody hears.
  const double first = files.front().sampleRate;
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

std::vector<fs::path> pathsOf(const std::vector<PlayListEntry>& entries) {
  std::vector<fs::path> paths;
  for (const PlayListEntry& entry : entries) paths.emplace_back(entry.path);
  return paths;
}

/// Whole frames of a sheet's track, whose bounds fall anywhere between the file's frames.
std::uint64_t framesWithin(const Track& part, const FileFacts& file) {
  const double frames = std::floor(part.duration * file.sampleRate) - 1;
  return static_cast<std::uint64_t>(std::clamp(frames, 0.0, static_cast<double>(file.totalFrames)));
}

/// One run of `velorin render`.
class RenderSession : private TrackSequenceListener {
 public:
  RenderSession(const RenderOptions& options, std::vector<PlayListEntry> entries,
                std::vector<FileFacts> files)
      : _options(options),
        _files(std::move(files)),
        _console(STDERR_FILENO),
        _recorder(std::make_shared<WavRecorder>(options.output, pathsOf(entries),
                                                [this] { onFailure(); })),
        _device(_hardware.addDevice(describeDevice(options, _files))),
        _engine(_hardware, _preferences, _bus),
        _engineQueue("com.velorin.engine"),
        _sequence(_engine, _engineQueue, _bus, std::move(entries), *this) {
    _hardware.setRecorder(_device, _recorder);
    _hardware.setPullGate(_device, [this](std::uint32_t frames) { return mayPull(frames); });
  }

  int run() {
    log::setSink([this](log::Level, std::string_view line) { _console.printError(line); });
    const int exitCode = openEvents() ? render() : kExitFailure;
    log::setSink({});
    return exitCode;
  }

 private:
  /// The device's clock, on its thread: as fast as the engine delivers, from the moment on that
  /// the track is announced, so that the announcement falls on the track's first frame. Once the
  /// track is over the engine needs a moment to notice; meanwhile the device does not race through
  /// silence.
  bool mayPull(std::uint32_t frames) {
    if (!_trackRuns || !_engine.canRender(frames)) return false;
    const auto now = std::chrono::steady_clock::now();
    if (_recorder->holdsSilence() && now < _lastPull + kSilentPullInterval) return false;
    _lastPull = now;
    return true;
  }

  bool openEvents() {
    if (_options.events.empty()) return true;
    auto made = EventLog::create(_options.events, _bus, [this] { return _recorder->frames(); });
    if (!made) {
      reportError(made.error().text);
      return false;
    }
    _events = std::move(made).value();
    return true;
  }

  int render() {
    std::optional<std::string> fault;
    _engineQueue.sync([&] {
      applySettings(_options.engine, _engine);
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
    _sequence.start(_options.engine.start);
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

  // --- TrackSequenceListener ---

  void trackStarted(std::size_t, const FileFacts&) override {
    _isResampled = _engine.facts().resampledTo > 0;
    _trackRuns = true;
  }

  void trackEnded(std::size_t index, bool playedOut) override {
    _trackRuns = false;
    const std::uint64_t frames =
        _recorder->frames() - std::exchange(_framesBefore, _recorder->frames());
    const std::uint64_t expected = expectedFrames(index);
    // A resampler keeps its tail, so its count tells nothing.
    if (!playedOut || _isResampled || frames >= expected) return;
    complain(index, fmt::format("ends early, after {} of {} samples; copy it again from its source",
                                frames, expected));
  }

  void trackFailed(std::size_t index, const std::string& reason) override {
    complain(index, reason);
  }

  void sequenceEnded(bool outputFailed) override {
    if (outputFailed) {
      complain(std::nullopt, "the virtual device did not start: run with --verbose to see why");
    }
    quit();
  }

  std::uint64_t expectedFrames(std::size_t index) const {
    const FileFacts& file = _files[index];
    if (index != 0 || !_options.engine.start) return file.totalFrames;
    // The start is kept in microseconds, so it may fall a few frames to either side.
    const double skipped = std::ceil((*_options.engine.start + 2e-6) * file.sampleRate);
    return skipped >= static_cast<double>(file.totalFrames)
               ? 0
               : file.totalFrames - static_cast<std::uint64_t>(skipped);
  }

  void complain(std::optional<std::size_t> index, const std::string& reason) {
    _failed = true;
    const std::string where =
        index ? text::pathForDisplay(_files[*index].path) + ": " : std::string();
    _console.printError("velorin: " + where + reason);
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
    stopEngineAndLoop(_engine, _engineQueue);
  }

  void refresh() {
    std::uint64_t total = 0;
    for (const FileFacts& file : _files) total += file.totalFrames;
    const double done = static_cast<double>(_recorder->frames());
    _console.setStatus(total == 0
                           ? fmt::format("rendering: {} frames", _recorder->frames())
                           : fmt::format("rendering: {:.0f} %",
                                         std::min(100.0, 100 * done / static_cast<double>(total))));
  }

  const RenderOptions& _options;
  const std::vector<FileFacts> _files;
  Console _console;
  EventBus _bus;
  Preferences _preferences;  ///< in memory: a rendering depends on its command line alone
  std::shared_ptr<WavRecorder> _recorder;
  VirtualAudioHardware _hardware;
  AudioDeviceID _device;
  AudioEngine _engine;
  SerialQueue _engineQueue;
  TrackSequence _sequence;
  std::unique_ptr<EventLog> _events;
  RepeatingTimer _redraw;

  std::atomic<bool> _trackRuns = false;
  std::chrono::steady_clock::time_point _lastPull{};  ///< device thread

  std::uint64_t _framesBefore = 0;  ///< of the tracks that are over
  bool _isResampled = false;
  bool _failed = false;
  bool _interrupted = false;
  bool _quitting = false;
};

}  // namespace

int runRender(const RenderOptions& options) {
  log::configure(options.verbose ? log::Level::info : log::Level::warning,
                 /*useJournalIfConnected=*/false);
  PlayList list = expandInputs(options.inputs);
  for (const std::string& problem : list.problems) reportError(problem);
  bool usable = list.problems.empty();
  std::vector<FileFacts> files;
  for (const PlayListEntry& entry : list.entries) {
    const fs::path path(entry.path);
    auto facts = readFileFacts(path);
    if (facts) {
      if (entry.info && entry.info->track.cueEndTime) {
        facts.value().totalFrames = framesWithin(entry.info->track, facts.value());
      }
      files.push_back(facts.value());
    } else {
      reportError(text::pathForDisplay(path) + ": " + facts.error().text);
      usable = false;
    }
    std::error_code none;
    if (fs::equivalent(path, options.output, none)) {
      reportError(text::pathForDisplay(options.output) +
                  ": is one of the files to render: choose another name");
      usable = false;
    }
  }
  if (!usable || files.empty()) return kExitFailure;
  RenderSession session(options, std::move(list.entries), std::move(files));
  return session.run();
}

}  // namespace velorin
