// The engine on a real sound server: what reaches the sink is what is in the file, and a sink or
// server that goes away never takes the player with it.
#include <gtest/gtest.h>

#include <thread>

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
#include "support/PipeWireSession.h"
#include "support/TemporaryFolder.h"

namespace velorin {
namespace {

using namespace std::chrono_literals;
using test::MonitorFormat;

/// A player on the session's sinks.
struct Player {
  explicit Player(const std::string& sink) {
    MainThread::instance();
    auto choice = createAudioHardware(AudioBackendChoice::pipewire);
    hardware = std::move(choice.hardware);
    if (!hardware) return;
    engine.emplace(*hardware, preferences, bus);
    engine->selectOutputDevice(hardware->deviceForUID(sink));
    ended = bus.subscribe<PlayNextTrack>(Delivery::mainThread, [this](auto&) { hasEnded = true; });
  }
  ~Player() {
    engine.reset();
    MainThread::instance().runReady();
  }

  Track write(const std::string& name, const test::FlacRecipe& recipe) {
    fixture = test::FlacFixture::make(recipe);
    fixture.write(folder / name);
    Track track;
    track.filePath = (folder / name).string();
    return track;
  }

  bool until(const std::function<bool()>& condition) {
    return MainThread::instance().runUntil(condition, 15s);
  }
  bool moves() {
    const double before = engine->currentPosition();
    return until([&] { return engine->currentPosition() > before + 0.05; });
  }

  test::TemporaryFolder folder;
  log::Capture log;
  Preferences preferences;
  EventBus bus;
  std::unique_ptr<AudioHardware> hardware;
  test::FlacFixture fixture;
  bool hasEnded = false;
  EventBus::Subscription ended;
  std::optional<AudioEngine> engine;
};

/// Interleaved samples of the recording, at the top of 32-bit words.
std::vector<std::int32_t> recorded(const std::vector<std::byte>& bytes, MonitorFormat format) {
  std::vector<std::int32_t> samples;
  const std::size_t size = format == MonitorFormat::int16 ? 2 : 4;
  for (std::size_t at = 0; at + size <= bytes.size(); at += size) {
    if (format == MonitorFormat::int16) {
      std::int16_t sample;
      std::memcpy(&sample, &bytes[at], 2);
      samples.push_back(std::int32_t{sample} * 65536);
    } else if (format == MonitorFormat::int32) {
      std::int32_t sample;
      std::memcpy(&sample, &bytes[at], 4);
      samples.push_back(sample);
    } else {
      float sample;
      std::memcpy(&sample, &bytes[at], 4);
      samples.push_back(static_cast<std::int32_t>(static_cast<double>(sample) * 2147483648.0));
    }
  }
  return samples;
}

std::vector<std::int32_t> interleaved(const test::FlacFixture& fixture, unsigned bits) {
  std::vector<std::int32_t> samples;
  for (std::size_t i = 0; i < fixture.samples[0].size(); ++i) {
    for (const auto& channel : fixture.samples) {
      samples.push_back(
          static_cast<std::int32_t>(static_cast<std::uint32_t>(channel[i]) << (32 - bits)));
    }
  }
  return samples;
}

struct Case {
  unsigned rate, bits;
  bool integer;
  MonitorFormat monitor;
};

/// Plays a track to its end and compares what the sink got. False when the server could not keep
/// up and said so: there is nothing to compare then.
bool playAndCompare(const Case& c) {
  Player player("any");
  EXPECT_TRUE(player.hardware);
  const Track track =
      player.write("a.flac", {.bits = c.bits, .sampleRate = c.rate, .frames = c.rate});
  player.engine->setIntegerMode(c.integer);
  test::PipeWireMonitorRecorder recorder;
  EXPECT_TRUE(recorder.start("any", c.rate, 2, c.monitor));
  player.engine->play(track);
  EXPECT_EQ(player.engine->state(), PlaybackState::playing);
  EXPECT_TRUE(player.engine->facts().deviceRateVerified);
  std::uint64_t xruns = 0;
  EXPECT_TRUE(player.until([&] {
    xruns = std::max(xruns, player.engine->facts().output.xruns);
    return player.hasEnded;
  }));
  if (xruns > 0) return false;

  const auto heard = recorded(recorder.stop(), c.monitor);
  const auto expected = interleaved(player.fixture, c.bits);
  // The whole track, in one piece, up to the very last frame.
  const auto found =
      std::search(heard.begin(), heard.end(), expected.begin(), expected.begin() + 64);
  if (found == heard.end() || static_cast<std::size_t>(heard.end() - found) < expected.size()) {
    ADD_FAILURE() << "the track is not whole in the recording";
    return true;
  }
  const auto difference = std::mismatch(expected.begin(), expected.end(), found).first;
  EXPECT_TRUE(difference == expected.end())
      << "frame " << (difference - expected.begin()) / 2 << " of " << expected.size() / 2;
  return true;
}

TEST(PipeWirePlayback, EveryBitOfTheFileReachesTheSink) {
  VELORIN_NEEDS_PIPEWIRE();
  constexpr int kTakes = 5;
  const Case cases[] = {
      {44100, 16, true, MonitorFormat::int16},  {44100, 16, false, MonitorFormat::int16},
      {48000, 24, false, MonitorFormat::int32}, {96000, 24, true, MonitorFormat::int32},
      {192000, 24, true, MonitorFormat::int32},
  };
  test::PipeWireSession session({{.name = "any"}}, {44100, 48000, 88200, 96000, 176400, 192000});
  ASSERT_TRUE(session.start()) << session.error();
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message()
                 << c.rate << " Hz, " << c.bits << " bits, integer " << c.integer);
    int take = 1;
    while (!playAndCompare(c) && take < kTakes) ++take;
    EXPECT_LT(take, kTakes) << "no take without an xrun";
  }
}

TEST(PipeWirePlayback, ALostSinkHandsTheMusicToAnother) {
  VELORIN_NEEDS_PIPEWIRE();
  test::PipeWireSession session({{.name = "stays", .rate = 48000}});
  ASSERT_TRUE(session.start()) << session.error();
  ASSERT_TRUE(session.createSink({.name = "goes", .rate = 48000}));
  Player player("goes");
  ASSERT_TRUE(player.hardware);
  const Track track = player.write("a.flac", {.sampleRate = 48000, .frames = 48000 * 30});
  player.engine->play(track);
  ASSERT_TRUE(player.moves());
  const double before = player.engine->currentPosition();

  ASSERT_TRUE(session.removeSink("goes"));
  ASSERT_TRUE(player.until([&] {
    return player.hardware->deviceUID(player.engine->currentDevice()) == "stays" &&
           player.engine->state() == PlaybackState::playing;
  }));
  EXPECT_TRUE(player.log.contains("⚠️ Output device lost: goes"));
  EXPECT_GE(player.engine->currentPosition(), before - 0.2);
  EXPECT_TRUE(player.moves()) << "and it is heard there";
}

TEST(PipeWirePlayback, AServerThatDiesAndReturnsIsSurvived) {
  VELORIN_NEEDS_PIPEWIRE();
  test::PipeWireSession session({{.name = "sink", .rate = 48000}});
  ASSERT_TRUE(session.start()) << session.error();
  Player player("sink");
  ASSERT_TRUE(player.hardware);
  player.engine->play(player.write("a.flac", {.sampleRate = 48000, .frames = 48000 * 30}));
  ASSERT_TRUE(player.moves());

  session.killServer();
  ASSERT_TRUE(player.until([&] { return player.engine->state() == PlaybackState::stopped; }));
  ASSERT_TRUE(session.restartServer()) << session.error();
  ASSERT_TRUE(player.until([&] { return player.engine->state() == PlaybackState::playing; }))
      << "the music goes on by itself";
  EXPECT_TRUE(player.moves());

  session.killServer();
  ASSERT_TRUE(player.until([&] { return player.engine->state() == PlaybackState::stopped; }));
  player.engine->stop();  // the listener gave up; nothing may hang on the way out
}

}  // namespace
}  // namespace velorin
