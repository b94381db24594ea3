// A listener with no patience: random transport and setting changes while music plays, with
// another thread looking on. What must hold is checked after every step.
#include <random>

#include "engine/EngineHarness.h"
#include "foundation/SerialQueue.h"
#include "support/DSDFixture.h"
#include "support/EncodedFixture.h"

namespace velorin {
namespace {

using test::EngineHarness;

constexpr int kSteps = 400;

TEST(AudioEngineStorm, NothingSticksLeaksOrLies) {
  auto device = test::wideDevice(VirtualClock::paced);
  device.bufferRange = {64, 2048};
  // No other: a switch takes its time. What is not at this rate is converted.
  device.rates = {{48000, 48000}};
  device.nominalRate = 48000;
  EngineHarness h(device);
  const test::SignalRecipe second{.frames = 48000};
  test::encodeWavPack(h.folder / "packed.wv", test::makeSignal(second), second);
  test::encodeOpus(h.folder / "lossy.opus", test::makeSignal(second), second);
  const auto oneBit = test::oneBitNoise(2, 352'800);
  test::writeFile(h.folder / "onebit.dsf", test::dsdFile(oneBit));
  test::writeFile(h.folder / "onebit.dff",
                  test::dsdFile(oneBit, {.format = DSDFormat::dsdiff, .rate = DSDRate::dsd128}));
  std::vector<Track> tracks = {
      h.file("short.flac", {.sampleRate = 48000, .frames = 5000}),
      h.file("long.flac", {.bits = 24, .sampleRate = 48000, .frames = 48000 * 4}),
      h.file("mono.flac", {.channels = 1, .sampleRate = 48000, .frames = 48000}),
      h.trackOf("missing.flac"),
      h.trackOf("packed.wv"),
      h.trackOf("lossy.opus"),
      h.trackOf("onebit.dsf"),
      h.trackOf("onebit.dff"),
  };
  Track cue = h.trackOf("long.flac");
  cue.cueStartTime = 1.0;
  cue.cueEndTime = 2.0;
  tracks.push_back(cue);

  std::atomic<bool> done{false};
  std::atomic<bool> lied{false};
  std::thread onlooker([&] {
    while (!done) {
      const double position = h.engine->currentPosition();
      const PlaybackFacts facts = h.engine->facts();
      if (position < 0 || position > 6 || std::isnan(position)) lied = true;
      if (judge(facts).bitPerfect && !facts.deviceRateVerified) lied = true;
      std::this_thread::yield();
    }
  });

  SerialQueue queue("com.velorin.engine");
  std::mt19937 random(20260101);
  const auto play = [&](AudioEngine& engine, int choice) {
    engine.play(tracks[static_cast<std::size_t>(choice) % tracks.size()],
                choice % 3 == 0 ? std::optional(choice / 500.0) : std::nullopt);
  };
  const auto seek = [](AudioEngine& engine, int choice) { engine.seek(choice / 200.0); };
  const std::vector<std::function<void(AudioEngine&, int)>> actions = {
      play,
      play,
      seek,
      seek,
      seek,
      [](AudioEngine& engine, int) { engine.pause(); },
      [](AudioEngine& engine, int) { engine.resume(); },
      [](AudioEngine& engine, int) { engine.togglePlayPause(); },
      [](AudioEngine& engine, int choice) {
        engine.setVolume(static_cast<float>(choice) / 1000.0f);
        engine.setSpectrumCaptureEnabled(choice % 2 == 0);
      },
      [](AudioEngine& engine, int choice) { engine.setIntegerMode(choice % 2 == 0); },
      [](AudioEngine& engine, int choice) { engine.setExclusiveMode(choice % 2 == 0); },
      [](AudioEngine& engine, int) { engine.stop(); },
      [&](AudioEngine& engine, int choice) {
        engine.setNextTrack(tracks[static_cast<std::size_t>(choice) % tracks.size()]);
      },
  };
  for (int step = 0; step < kSteps; ++step) {
    const std::size_t action = random() % actions.size();
    const int choice = static_cast<int>(random() % 1000);
    queue.sync([&] { actions[action](*h.engine, choice); });
    // A track may end by itself at any moment, so they may differ for one, but not for long.
    ASSERT_TRUE(h.waitUntil([&] {
      return h.hardware.isRunning(h.device) == (h.engine->state() == PlaybackState::playing);
    })) << "step "
        << step << ", action " << action;
  }

  h.engine->play(tracks[0]);
  EXPECT_TRUE(h.waitUntil([&] { return h.engine->state() == PlaybackState::stopped; }))
      << "after all that a short track still plays to its end";
  done = true;
  onlooker.join();
  EXPECT_FALSE(lied);
}

}  // namespace
}  // namespace velorin
