// Devices come, go and change while the engine plays: where it goes on, and in which mode.
#include <thread>

#include "dsp/DSPEffects.h"
#include "dsp/settings/DeviceSettingsManager.h"
#include "engine/EngineHarness.h"

namespace velorin {
namespace {

using test::EngineHarness;
using test::wideDevice;

constexpr std::uint32_t kPull = 4410;

/// Devices "A", "B" … of one engine; "A" is there from the start and the system's default.
struct Devices : EngineHarness {
  static VirtualDeviceDescription describe(const std::string& name) {
    auto device = wideDevice(VirtualClock::manual);
    device.uid = "uid:" + name;
    device.name = name;
    device.channels = 2;
    return device;
  }

  Devices() : EngineHarness(describe("A")), a(device) {}

  AudioDeviceID plug(const std::string& name) { return hardware.addDevice(describe(name)); }
  AudioDeviceID plug(VirtualDeviceDescription description) {
    return hardware.addDevice(std::move(description));
  }

  /// Plays on the current device until it is a second into the track.
  void playOneSecond() {
    engine->play(file("a.flac", {.frames = 44100 * 4}));
    listen(1.0);
  }
  void listen(double until) {
    while (engine->currentPosition() < until) {
      if (!hardware.pull(engine->currentDevice(), kPull)) FAIL() << "nothing plays";
    }
  }
  bool plays(AudioDeviceID on) {
    return waitUntil([&] {
      return engine->currentDevice() == on && hardware.isRunning(on) &&
             engine->state() == PlaybackState::playing;
    });
  }
  /// Also for what is told on no thread of ours.
  bool waitUntil(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!MainThread::instance().runUntil(condition, std::chrono::milliseconds(2))) {
      if (std::chrono::steady_clock::now() > deadline) return false;
    }
    return true;
  }
  bool has(const std::string& event) const {
    return std::ranges::find(events, event) != events.end();
  }

  const AudioDeviceID a;
};

TEST(DeviceLifecycle, FollowsTheDefaultAtTheSamePlaceUnlessTheDeviceIsHeld) {
  Devices h;
  const AudioDeviceID b = h.plug("B");
  h.playOneSecond();
  const double position = h.engine->currentPosition();
  h.hardware.setDefaultOutputDevice(b);
  ASSERT_TRUE(h.plays(b));
  EXPECT_NEAR(h.engine->currentPosition(), position, 1e-5);
  EXPECT_FALSE(h.hardware.isRunning(h.a));
  EXPECT_TRUE(h.engine->followsSystemDefaultOutput());

  h.engine->setExclusiveMode(true);
  h.hardware.setDefaultOutputDevice(h.a);
  // The next thing the listener queue does comes after that change.
  const AudioDeviceID c = h.plug("C");
  h.hardware.removeDevice(b);
  ASSERT_TRUE(h.waitFor("switched B to A")) << "held until it was gone";
  ASSERT_TRUE(h.plays(h.a));
  EXPECT_FALSE(h.engine->holdsDeviceExclusively()) << "A's profile has no exclusive access";
  EXPECT_NE(h.engine->currentDevice(), c);
}

TEST(DeviceLifecycle, ALostChoiceIsReplacedAndComesBackWithItsSettings) {
  for (const bool paused : {false, true}) {
    SCOPED_TRACE(paused);
    Devices h;
    const AudioDeviceID b = h.plug("B");
    h.engine->selectOutputDevice(b);
    EXPECT_FALSE(h.engine->followsSystemDefaultOutput());
    h.engine->setSampleRateStrategy(SampleRateStrategy::max);
    h.playOneSecond();
    if (paused) h.engine->pause();
    const double position = h.engine->currentPosition();
    std::optional<AudioDeviceDidAutoSwitch> told;
    const auto subscription = h.bus.subscribe<AudioDeviceDidAutoSwitch>(
        Delivery::mainThread, [&](const auto& event) { told = event; });

    const auto arrived = [&](AudioDeviceID device) {
      return h.waitUntil([&] {
        return told && told->toID == device &&
               h.engine->state() == (paused ? PlaybackState::paused : PlaybackState::playing);
      });
    };
    h.hardware.removeDevice(b);
    ASSERT_TRUE(arrived(h.a));
    EXPECT_EQ(told->fromID, b);
    EXPECT_EQ(told->fromName, "B");
    EXPECT_EQ(told->toName, "A");
    EXPECT_NEAR(h.engine->currentPosition(), position, 1e-5);
    EXPECT_EQ(h.engine->sampleRateStrategy(), SampleRateStrategy::native);

    h.plug("B");
    ASSERT_TRUE(arrived(b));
    EXPECT_EQ(told->fromName, std::nullopt);
    EXPECT_TRUE(h.log.contains("🔄 Pending device re-appeared, switching back: B"));
    EXPECT_NEAR(h.engine->currentPosition(), position, 1e-5);
    EXPECT_EQ(h.engine->sampleRateStrategy(), SampleRateStrategy::max);
    EXPECT_EQ(h.hardware.isRunning(b), !paused);
  }
}

TEST(DeviceLifecycle, WithoutAnyDeviceThePlaceIsKeptForAWhile) {
  Devices h;
  h.engine->setExclusiveMode(true);
  h.playOneSecond();
  const double position = h.engine->currentPosition();
  h.hardware.removeDevice(h.a);
  ASSERT_TRUE(h.waitFor("state stopped"));
  ASSERT_TRUE(h.waitUntil([&] { return h.engine->currentDevice() == kNoDevice; }));
  EXPECT_FALSE(h.engine->holdsDeviceExclusively());
  h.plug("A");
  ASSERT_TRUE(h.plays(h.a));
  EXPECT_NEAR(h.engine->currentPosition(), position, 1e-5);
  EXPECT_NE(h.hardware.hogOwner(h.a), -1) << "taken again";

  // What the listener does meanwhile counts.
  h.events.clear();
  h.hardware.removeDevice(h.a);
  ASSERT_TRUE(h.waitFor("state stopped"));
  h.engine->stop();
  h.plug("A");
  ASSERT_TRUE(h.waitUntil([&] { return h.engine->currentDevice() == h.a; }));
  EXPECT_EQ(h.engine->state(), PlaybackState::stopped);

  // And after some seconds it is given up.
  h.engine->togglePlayPause();
  h.events.clear();
  h.hardware.removeDevice(h.a);
  ASSERT_TRUE(h.waitUntil([&] { return h.log.contains("❌ No valid output device available"); }));
  h.plug("A");
  ASSERT_TRUE(h.waitUntil([&] { return h.engine->currentDevice() == h.a; }));
  EXPECT_EQ(h.engine->state(), PlaybackState::stopped);
}

TEST(DeviceLifecycle, ADeviceThatIsAwayForAMomentPlaysOn) {
  for (const bool paused : {false, true}) {
    SCOPED_TRACE(paused);
    Devices h;
    h.playOneSecond();
    if (paused) h.engine->pause();
    const double position = h.engine->currentPosition();
    const int generation = h.engine->playGeneration();
    h.hardware.removeDevice(h.a);
    h.plug("A");
    ASSERT_TRUE(h.waitUntil([&] {
      return h.engine->playGeneration() > generation + 1 && h.engine->currentDevice() == h.a &&
             h.engine->state() == (paused ? PlaybackState::paused : PlaybackState::playing);
    }));
    EXPECT_NEAR(h.engine->currentPosition(), position, 1e-5);
    if (paused) h.engine->resume();
    EXPECT_TRUE(h.plays(h.a));
    h.listen(1.5);
  }
}

TEST(DeviceLifecycle, ADeviceThatFailsWheneverItPlaysIsNotTriedForEver) {
  Devices h;
  h.playOneSecond();
  int starts = 0;
  while (!h.log.contains("❌ No valid output device available")) {
    ASSERT_LT(h.hardware.callCount(VirtualOperation::start), 40);
    if (h.hardware.isRunning(h.a)) {
      ++starts;
      h.hardware.raise(h.a, OutputEvent::deviceLost);
    }
    h.waitUntil([&, was = h.engine->playGeneration()] {
      return h.engine->playGeneration() != was ||
             h.log.contains("❌ No valid output device available");
    });
    h.waitUntil([&] {
      return h.hardware.isRunning(h.a) || h.log.contains("❌ No valid output device available");
    });
  }
  EXPECT_GT(starts, 1);
  EXPECT_EQ(h.engine->state(), PlaybackState::stopped);
}

TEST(DeviceLifecycle, EachDeviceHasItsOwnSettings) {
  Devices h;
  auto held = Devices::describe("B");
  held.volume = 0.5f;
  const AudioDeviceID b = h.plug(held);
  DeviceSettings profile;
  profile.exclusiveMode = profile.integerMode = profile.lowLatencyMode = true;
  profile.crossfadePlaybackEnabled = true;
  profile.crossfadeDuration = 7;
  profile.stereoWidenerEnabled = true;
  profile.volumeMode = static_cast<int>(VolumeMode::hardware);
  profile.sampleRateStrategy = 99;
  DeviceSettingsManager(h.preferences).save(profile, "uid:B");
  h.engine->setGaplessEnabled(true);
  h.engine->setVolume(0.3f);
  std::optional<DeviceSettings> told;
  const auto subscription = h.bus.subscribe<AudioDeviceSettingsWillSwitch>(
      Delivery::mainThread, [&](const auto& event) { told = event.settings; });

  h.playOneSecond();
  h.engine->selectOutputDevice(b);
  EXPECT_TRUE(h.plays(b));
  EXPECT_TRUE(h.engine->exclusiveMode());
  EXPECT_TRUE(h.engine->facts().output.exclusive) << "held before the stream was made";
  EXPECT_TRUE(h.engine->integerMode() && h.engine->isIntegerOutput());
  EXPECT_TRUE(h.engine->lowLatencyMode());
  EXPECT_TRUE(h.engine->crossfadePlaybackEnabled());
  EXPECT_EQ(h.engine->crossfadeDuration(), 7);
  EXPECT_TRUE(h.engine->effects().stereoWidener.isEnabled());
  EXPECT_EQ(h.engine->sampleRateStrategy(), SampleRateStrategy::native);
  EXPECT_EQ(h.engine->volumeMode(), VolumeMode::hardware);
  EXPECT_EQ(h.engine->volume(), 1.0f);
  EXPECT_FALSE(h.engine->gaplessEnabled());
  MainThread::instance().runReady();
  ASSERT_TRUE(told);
  EXPECT_EQ(told->crossfadeDuration, 7);
  EXPECT_EQ(h.preferences.getBool("exclusiveMode"), true);

  // A device that was never used has the fallback of each field.
  const AudioDeviceID c = h.plug("C");
  h.engine->selectOutputDevice(c);
  EXPECT_EQ(h.hardware.hogOwner(b), -1) << "given back";
  EXPECT_FALSE(h.engine->exclusiveMode() || h.engine->integerMode() || h.engine->gaplessEnabled());
  EXPECT_EQ(h.engine->volumeMode(), VolumeMode::software);
  EXPECT_FALSE(h.engine->effects().stereoWidener.isEnabled());

  // What was set for a device is there again; also at the next start, on that device.
  h.engine->selectOutputDevice(h.a);
  EXPECT_TRUE(h.engine->gaplessEnabled());
  h.preferences.setText("lastSelectedOutputDeviceUID", "uid:B");
  h.engine.emplace(h.hardware, h.preferences, h.bus);
  EXPECT_EQ(h.engine->currentDevice(), b);
  EXPECT_TRUE(h.engine->integerMode());
  EXPECT_EQ(h.preferences.getBool("exclusiveMode"), true) << "for the player to take";
}

TEST(DeviceLifecycle, ADeviceThatVanishesInTheMiddleOfASwitchHarmsNothing) {
  Devices h;
  const AudioDeviceID b = h.plug("B");
  DeviceSettings profile;
  profile.exclusiveMode = profile.integerMode = true;
  DeviceSettingsManager(h.preferences).save(profile, "uid:B");
  h.playOneSecond();
  // It is told of its going at the worst moment: when its profile is in force.
  const auto subscription = h.preferences.observe("outputDeviceUIDInUse", [&] {
    if (h.preferences.getText("outputDeviceUIDInUse") == "uid:B") h.hardware.removeDevice(b);
  });
  h.engine->selectOutputDevice(b);
  ASSERT_TRUE(h.plays(h.a));
  EXPECT_FALSE(h.engine->integerMode()) << "A plays in A's mode";
  EXPECT_FALSE(h.engine->holdsDeviceExclusively());
}

TEST(DeviceLifecycle, ASwitchTakesAlongWhatWaitsToBeHeard) {
  for (const bool crossfade : {false, true}) {
    SCOPED_TRACE(crossfade);
    Devices h;
    const AudioDeviceID b = h.plug("B");
    DeviceSettings profile;
    profile.gaplessPlayback = true;
    profile.crossfadePlaybackEnabled = crossfade;
    profile.crossfadeDuration = 1;
    for (const char* uid : {"uid:A", "uid:B"})
      DeviceSettingsManager(h.preferences).save(profile, uid);
    h.engine->setCrossfadePlaybackEnabled(crossfade);
    h.engine->setCrossfadeDuration(1);
    const Track first = h.file("first.flac", {.frames = 44100 * 2});
    const Track second = h.file("second.flac", {.frames = 44100 * 2});
    h.engine->play(first);
    h.engine->setNextTrack(second);
    h.listen(1.3);
    ASSERT_TRUE(h.waitUntil([&] { return h.engine->gaplessTransitionPending(); }));
    h.engine->selectOutputDevice(b);
    EXPECT_EQ(h.engine->currentTrack()->title, "first.flac");
    EXPECT_NEAR(h.engine->currentPosition(), 1.35, 0.1);
    ASSERT_TRUE(h.waitUntil([&] {
      h.hardware.pull(b, 441);
      return h.has(crossfade ? "track second.flac crossfade" : "track second.flac gapless");
    }));
  }
}

TEST(DeviceLifecycle, SeveralDevicesPlayAsOneUntilTheyAreGone) {
  Devices h;
  const AudioDeviceID b = h.plug("B");
  h.engine->setExclusiveMode(true);
  h.engine->setIntegerMode(true);
  h.engine->setGaplessEnabled(true);
  h.playOneSecond();
  const double position = h.engine->currentPosition();
  h.engine->enableMultiOutput({"uid:A"});
  EXPECT_EQ(h.engine->currentDevice(), h.a) << "one is not several";

  h.engine->enableMultiOutput({"uid:A", "uid:B"});
  const AudioDeviceID both = h.engine->currentDevice();
  EXPECT_NE(both, h.a);
  EXPECT_EQ(h.engine->multiOutputDeviceUIDs(), (std::vector<std::string>{"uid:A", "uid:B"}));
  EXPECT_FALSE(h.engine->exclusiveMode() || h.engine->integerMode());
  EXPECT_EQ(h.engine->enumerateOutputDevices().size(), 2u) << "the own one is not offered";
  EXPECT_NEAR(h.engine->currentPosition(), position, 1e-5);
  h.hardware.pull(both, 64, [](const AudioBufferList& list, std::uint32_t, std::uint32_t) {
    ASSERT_EQ(list.bufferCount, 4u);
    EXPECT_EQ(std::memcmp(list.buffers[0].data, list.buffers[2].data, 256), 0);
    EXPECT_EQ(std::memcmp(list.buffers[1].data, list.buffers[3].data, 256), 0);
  });

  h.hardware.failNext(VirtualOperation::createAggregate, AudioStatus::failure(-EIO));
  h.hardware.removeDevice(b);
  h.hardware.removeDevice(h.a);
  ASSERT_TRUE(h.waitUntil([&] { return h.log.contains("⚠️ Aggregate device lost"); }));
  // Before that the next device would be taken for the one to go on with.
  ASSERT_TRUE(h.waitUntil([&] { return h.engine->currentDevice() == kNoDevice; }));
  EXPECT_TRUE(h.engine->multiOutputDeviceUIDs().empty());
  h.plug("B");
  ASSERT_TRUE(h.plays(b));
  EXPECT_EQ(h.preferences.getBool("multiOutputEnabled"), false);
  h.plug("A");
  ASSERT_TRUE(h.plays(h.a)) << "the first of them";
  EXPECT_TRUE(h.engine->exclusiveMode() && h.engine->gaplessEnabled()) << "as it was left";

  h.engine->enableMultiOutput({"uid:A", "uid:B"});
  EXPECT_EQ(h.engine->currentDevice(), h.a) << "it could not be made";
  EXPECT_TRUE(h.plays(h.a));
  EXPECT_TRUE(h.engine->holdsDeviceExclusively());

  // Wanted at the start, and possible or not.
  h.preferences.setBool("multiOutputEnabled", true);
  h.preferences.setList("multiOutputDeviceUIDs", {{std::string("uid:A")}, {std::string("uid:B")}});
  h.engine.emplace(h.hardware, h.preferences, h.bus);
  ASSERT_TRUE(h.waitUntil([&] { return h.engine->multiOutputDeviceUIDs().size() == 2; }));
  h.engine->followSystemDefault();
  EXPECT_EQ(h.engine->currentDevice(), h.hardware.defaultOutputDevice());
  EXPECT_TRUE(h.engine->multiOutputDeviceUIDs().empty());
  h.preferences.setBool("multiOutputEnabled", true);
  h.preferences.setList("multiOutputDeviceUIDs", {{std::string("uid:A")}, {std::string("gone")}});
  h.engine.emplace(h.hardware, h.preferences, h.bus);
  EXPECT_EQ(h.preferences.getBool("multiOutputEnabled"), false);
}

TEST(DeviceLifecycle, TheDevicesOwnVolumeIsSetAndHeardOf) {
  Devices h;
  auto loud = Devices::describe("B");
  loud.volume = 0.5f;
  const AudioDeviceID b = h.plug(loud);
  EXPECT_EQ(h.engine->hardwareVolume(h.a), std::nullopt);
  EXPECT_FALSE(h.engine->setHardwareVolume(h.a, 0.5f));
  EXPECT_TRUE(h.engine->setHardwareVolume(b, 1.5f));
  EXPECT_EQ(h.engine->hardwareVolume(b), 1.0f);
  EXPECT_FALSE(h.engine->setHardwareVolume(b, std::numeric_limits<float>::quiet_NaN()));

  std::vector<double> heard;
  const auto subscription = h.bus.subscribe<HardwareVolumeDidChange>(
      Delivery::mainThread, [&](const auto& event) { heard.push_back(event.volume); });
  h.engine->selectOutputDevice(b);
  h.engine->setHardwareVolume(b, 0.75f);
  h.engine->setVolumeMode(VolumeMode::hardware);
  EXPECT_EQ(h.engine->volume(), 1.0f);
  h.engine->setHardwareVolume(b, 0.25f);
  ASSERT_TRUE(h.waitUntil([&] { return !heard.empty(); }));
  EXPECT_EQ(heard, std::vector<double>{0.25}) << "nothing of the time before";
}

TEST(DeviceLifecycle, AStormOfDevicesEndsInOrder) {
  Devices h;
  h.plug("B");
  const Track track = h.file("a.flac", {.frames = 44100});
  std::atomic<bool> ends{false};
  std::thread storm([&] {
    for (int i = 0; !ends; ++i) {
      const AudioDeviceID id = h.plug(i % 2 == 0 ? "C" : "D");
      h.hardware.setDefaultOutputDevice(id);
      h.hardware.removeDevice(id);
    }
  });
  for (int i = 0; i < 12; ++i) {
    h.engine->play(track);
    h.engine->setExclusiveMode(i % 2 == 0);
    h.engine->selectOutputDevice(h.hardware.deviceForUID(i % 3 == 0 ? "uid:B" : "uid:A"));
    if (i % 4 == 0) h.engine->followSystemDefault();
    MainThread::instance().runReady();
    // An engine that ends while its handler runs.
    if (i % 3 == 2) h.engine.emplace(h.hardware, h.preferences, h.bus);
  }
  ends = true;
  storm.join();
  h.engine->selectOutputDevice(h.a);
  h.engine->play(track);
  EXPECT_TRUE(h.plays(h.a));
}

}  // namespace
}  // namespace velorin
