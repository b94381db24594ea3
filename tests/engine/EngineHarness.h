// An engine on virtual devices, with everything it says and plays on record.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>

#include "engine/AudioEngine.h"
#include "foundation/EventBus.h"
#include "foundation/Log.h"
#include "foundation/MainThread.h"
#include "foundation/Preferences.h"
#include "platform/audio/virtual/VirtualAudioHardware.h"
#include "records/Events.h"
#include "support/FlacFixture.h"
#include "support/TemporaryFolder.h"

namespace velorin::test {

/// Keeps what a device was given, sample by sample, as left-justified 32-bit integers or floats.
class SampleRecorder : public VirtualRecorder {
 public:
  void begin(const StreamFormat& format) override {
    MutexLock hold(_mutex);
    _format = format;
    _floats.assign(format.channelsPerFrame, {});
    _integers.assign(format.channelsPerFrame, {});
  }

  void record(const AudioBufferList& list, std::uint32_t, std::uint32_t programme) override {
    MutexLock hold(_mutex);
    for (std::uint32_t c = 0; c < list.bufferCount; ++c) {
      if (_format.isFloat()) {
        const auto* samples = list.channel<float>(c);
        _floats[c].insert(_floats[c].end(), samples, samples + programme);
        continue;
      }
      for (std::uint32_t i = 0; i < programme; ++i) {
        _integers[c].push_back(_format.bytesPerFrame == 2
                                   ? std::int32_t{list.channel<std::int16_t>(c)[i]} * 65536
                                   : list.channel<std::int32_t>(c)[i]);
      }
    }
  }

  void end() override {}

  StreamFormat format() const {
    MutexLock hold(_mutex);
    return _format;
  }
  std::vector<std::vector<float>> floats() const {
    MutexLock hold(_mutex);
    return _floats;
  }
  std::vector<std::vector<std::int32_t>> integers() const {
    MutexLock hold(_mutex);
    return _integers;
  }

 private:
  mutable Mutex _mutex;
  StreamFormat _format GUARDED_BY(_mutex);
  std::vector<std::vector<float>> _floats GUARDED_BY(_mutex);
  std::vector<std::vector<std::int32_t>> _integers GUARDED_BY(_mutex);
};

/// Every rate a test asks for, no buffer check in the way.
inline VirtualDeviceDescription wideDevice(VirtualClock clock) {
  VirtualDeviceDescription device;
  device.clock = clock;
  device.rates.clear();
  for (double rate : {8000.0, 44100.0, 48000.0, 88200.0, 96000.0, 192000.0, 384000.0}) {
    device.rates.push_back({rate, rate});
  }
  device.bufferRange = {64, 16384};
  device.channels = 8;
  return device;
}

class EngineHarness {
 public:
  explicit EngineHarness(VirtualDeviceDescription description) {
    MainThread::instance();
    description.recorder = recorder;
    device = hardware.addDevice(std::move(description));
    engine.emplace(hardware, preferences, bus);
    hardware.setPullGate(device,
                         [this](std::uint32_t frames) { return engine->canRender(frames); });
    _subscriptions.push_back(note<PlaybackStateDidChange>(
        [](const auto& e) { return "state " + std::string(nameOf(e.state)); }));
    _subscriptions.push_back(
        note<TrackDidChange>([](const auto& e) { return "track " + e.track.title + joinOf(e); }));
    _subscriptions.push_back(note<PlayNextTrack>(
        [](const auto& e) { return std::string(e.autoAdvance ? "next auto" : "next"); }));
    _subscriptions.push_back(
        note<PlaybackFileUnavailable>([](const auto& e) { return "unavailable " + e.title; }));
    _subscriptions.push_back(note<AudioDeviceDidAutoSwitch>(
        [](const auto& e) { return "switched " + e.fromName.value_or("?") + " to " + e.toName; }));
  }

  ~EngineHarness() {
    engine.reset();
    MainThread::instance().runReady();
  }

  /// A FLAC file of the recipe and a track that names it.
  Track file(const std::string& name, const FlacRecipe& recipe) {
    const FlacFixture made = FlacFixture::make(recipe);
    made.write(folder / name);
    lastSamples = made.samples;
    return trackOf(name);
  }

  Track trackOf(const std::string& name) {
    Track track;
    track.title = name;
    track.filePath = (folder / name).string();
    return track;
  }

  /// Runs the main thread until an event of that text was posted.
  bool waitFor(const std::string& event,
               std::chrono::milliseconds timeout = std::chrono::seconds(20)) {
    return MainThread::instance().runUntil(
        [&] { return std::ranges::find(events, event) != events.end(); }, timeout);
  }

  bool waitUntil(const std::function<bool()>& condition) {
    return MainThread::instance().runUntil(condition, std::chrono::seconds(20));
  }

  /// One callback of a manual device.
  void pull(std::uint32_t frames) { ASSERT_TRUE(hardware.pull(device, frames)); }

  /// The first channel of one callback of a manual device.
  std::vector<float> heard(std::uint32_t frames) {
    std::vector<float> samples;
    hardware.pull(device, frames, [&](const AudioBufferList& list, std::uint32_t n, auto) {
      samples.assign(list.channel<float>(0), list.channel<float>(0) + n);
    });
    return samples;
  }

  /// What that is of the last file made, which has 16 bits.
  std::vector<float> expected(std::size_t from, std::size_t count) const;

  void resampleTo(double rate) {
    engine->setSampleRateStrategy(SampleRateStrategy::fixed);
    engine->setFixedSampleRate(rate);
  }

  /// Plays a track on an unpaced device to its end.
  void playToEnd(const Track& track, std::optional<double> start = std::nullopt) {
    events.clear();
    engine->play(track, start);
    ASSERT_TRUE(waitFor("next auto")) << "the track never ended";
  }

  /// How an announced track took over, as its event shows it.
  static std::string joinOf(const TrackDidChange& event) {
    if (!event.join) return {};
    return *event.join == Join::gapless ? " gapless" : " crossfade";
  }

  // Declared in the order in which they must be made; the engine goes first.
  TemporaryFolder folder;
  log::Capture log;
  VirtualAudioHardware hardware;
  Preferences preferences;
  EventBus bus;
  std::shared_ptr<SampleRecorder> recorder = std::make_shared<SampleRecorder>();
  AudioDeviceID device = kNoDevice;
  std::vector<std::string> events;  ///< of the main thread, in order
  std::vector<std::vector<std::int32_t>> lastSamples;
  std::optional<AudioEngine> engine;

 private:
  template <class Event, class Text>
  EventBus::Subscription note(Text text) {
    return bus.subscribe<Event>(
        Delivery::mainThread, [this, text](const Event& event) { events.push_back(text(event)); });
  }
  std::vector<EventBus::Subscription> _subscriptions;
};

/// The samples of a recipe at the top of 32-bit words, from a frame on.
inline std::vector<std::int32_t> leftJustified(const std::vector<std::int32_t>& samples,
                                               unsigned bits, std::size_t from = 0) {
  std::vector<std::int32_t> result;
  for (std::size_t i = from; i < samples.size(); ++i) {
    result.push_back(
        static_cast<std::int32_t>(static_cast<std::uint32_t>(samples[i]) << (32 - bits)));
  }
  return result;
}

inline std::vector<float> asFloat(const std::vector<std::int32_t>& samples, unsigned bits,
                                  std::size_t from = 0) {
  std::vector<float> result;
  const float scale = std::ldexp(1.0f, 1 - static_cast<int>(bits));
  for (std::size_t i = from; i < samples.size(); ++i) {
    result.push_back(static_cast<float>(samples[i]) * scale);
  }
  return result;
}

inline std::vector<float> EngineHarness::expected(std::size_t from, std::size_t count) const {
  auto samples = asFloat(lastSamples[0], 16, from);
  samples.resize(count);
  return samples;
}

}  // namespace velorin::test
