// The engine on the sinks of a test's sound server, and what is heard there.
#pragma once

#include <cmath>
#include <cstring>
#include <numbers>
#include <optional>

#include "engine/AudioEngine.h"
#include "foundation/EventBus.h"
#include "foundation/Log.h"
#include "foundation/MainThread.h"
#include "foundation/Preferences.h"
#include "platform/audio/AudioHardware.h"
#include "platform/audio/AudioHardwareFactory.h"
#include "records/Events.h"
#include "support/FlacFixture.h"
#include "support/PipeWireMonitorRecorder.h"
#include "support/TemporaryFolder.h"

namespace velorin::test {

struct SinkPlayer {
  /// With an empty sink the engine does as its preferences say: it follows the default.
  explicit SinkPlayer(const std::string& sink = {}) {
    MainThread::instance();
    auto choice = createAudioHardware(AudioBackendChoice::pipewire);
    hardware = std::move(choice.hardware);
    if (!hardware) return;
    engine.emplace(*hardware, preferences, bus);
    if (!sink.empty()) engine->selectOutputDevice(hardware->deviceForUID(sink));
    ended = bus.subscribe<PlayNextTrack>(Delivery::mainThread, [this](auto&) { hasEnded = true; });
  }
  ~SinkPlayer() {
    engine.reset();
    MainThread::instance().runReady();
  }

  Track write(const std::string& name, const FlacRecipe& recipe) {
    fixture = FlacFixture::make(recipe);
    fixture.write(folder / name);
    Track track;
    track.filePath = (folder / name).string();
    return track;
  }

  /// A track whose every half second has a sound of its own, at 48 kHz.
  static constexpr int kStretches = 60;
  Track writeClock() {
    std::vector<double> angles;
    for (int i = 0; i < kStretches; ++i) angles.push_back(angleOf(i));
    return write("clock.flac", {.sampleRate = 48000,
                                .frames = 24000 * kStretches,
                                .signal = FlacRecipe::Signal::steady,
                                .angles = angles});
  }
  /// The second of the clock track that is heard on the sink now; nothing where there is silence.
  static std::optional<double> heardOn(const std::string& sink) {
    PipeWireMonitorRecorder recorder;
    if (!recorder.start(sink, 48000, 2, MonitorFormat::float32)) return std::nullopt;
    MainThread::instance().runUntil(
        [&, seen = recorder.size()] { return recorder.size() > seen + 4096 * sizeof(float); },
        std::chrono::seconds(5));
    const auto bytes = recorder.stop();
    float last[2] = {};
    if (bytes.size() < sizeof last) return std::nullopt;
    std::memcpy(last, bytes.data() + bytes.size() / sizeof last * sizeof last - sizeof last,
                sizeof last);
    if (std::hypot(last[0], last[1]) < 0.1f) return std::nullopt;
    const double angle = std::atan2(last[1], last[0]);
    return (angle / angleOf(0) - 1 + 0.5) / 2;  // the middle of the stretch
  }

  bool until(const std::function<bool()>& condition) {
    return MainThread::instance().runUntil(condition, std::chrono::seconds(15));
  }
  bool moves() {
    const double before = engine->currentPosition();
    return until([&] { return engine->currentPosition() > before + 0.05; });
  }
  std::string device() const { return hardware->deviceUID(engine->currentDevice()); }
  bool playsOn(const std::string& sink) {
    return until([&] { return device() == sink && engine->state() == PlaybackState::playing; }) &&
           moves();
  }
  /// The clock track is heard there, and where the engine says that it is.
  bool isHeardOn(const std::string& sink) {
    return until([&] {
      const auto heard = heardOn(sink);
      return heard && std::abs(*heard - engine->currentPosition()) < 0.6;
    });
  }

  TemporaryFolder folder;
  log::Capture log;
  Preferences preferences;
  EventBus bus;
  std::unique_ptr<AudioHardware> hardware;
  FlacFixture fixture;
  bool hasEnded = false;
  EventBus::Subscription ended;
  std::optional<AudioEngine> engine;

 private:
  static double angleOf(int stretch) {
    return (stretch + 1) * std::numbers::pi / 2 / (kStretches + 2);
  }
};

}  // namespace velorin::test
