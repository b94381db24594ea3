// Sinks and servers that come, go, stall and change while the engine plays on them: the music goes
// where it should, on from where it was, and nothing hangs.
#include <gtest/gtest.h>

#include "integration/SinkPlayer.h"
#include "support/PipeWireSession.h"

namespace velorin {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Player = test::SinkPlayer;

class DeviceLifecycle : public testing::Test {
 protected:
  void SetUp() override {
    VELORIN_NEEDS_PIPEWIRE();
    session = std::make_unique<test::PipeWireSession>(
        std::vector<test::PipeWireSinkSpec>{{"first", 48000}, {"second", 44100}});
    ASSERT_TRUE(session->start()) << session->error();
    ASSERT_TRUE(session->setDefaultSink("first"));
  }
  bool plug(const char* name) { return session->createSink({.name = name, .rate = 48000}); }

  std::unique_ptr<test::PipeWireSession> session;
};

TEST_F(DeviceLifecycle, TheMusicFollowsTheDefault) {
  Player player;
  ASSERT_TRUE(player.until([&] { return player.device() == "first"; }));
  const Track track = player.writeClock();
  player.engine->play(track);
  ASSERT_TRUE(player.isHeardOn("first"));
  ASSERT_TRUE(plug("headphones"));
  double before = player.engine->currentPosition();
  ASSERT_TRUE(session->setDefaultSink("headphones"));
  EXPECT_TRUE(player.playsOn("headphones"));
  EXPECT_GE(player.engine->currentPosition(), before - 0.2);
  EXPECT_TRUE(player.isHeardOn("headphones"));

  // The system picks another default when this one goes.
  before = player.engine->currentPosition();
  ASSERT_TRUE(session->removeSink("headphones"));
  EXPECT_TRUE(player.until([&] { return player.device() != "headphones"; }));
  EXPECT_TRUE(player.playsOn(player.hardware->deviceUID(player.hardware->defaultOutputDevice())));
  EXPECT_GE(player.engine->currentPosition(), before - 0.2);

  // A pause stays one across a switch.
  player.engine->pause();
  const double paused = player.engine->currentPosition();
  const std::string other = player.device() == "first" ? "second" : "first";
  ASSERT_TRUE(session->setDefaultSink(other));
  ASSERT_TRUE(player.until([&] { return player.device() == other; }));
  ASSERT_TRUE(player.until([&] { return player.engine->state() == PlaybackState::paused; }));
  EXPECT_NEAR(player.engine->currentPosition(), paused, 0.1);
  player.engine->resume();
  EXPECT_TRUE(player.isHeardOn(other));
}

TEST_F(DeviceLifecycle, AChosenSinkIsLeftWhenItGoesAndUsedAgainWhenItIsBack) {
  ASSERT_TRUE(plug("dac"));
  Player player("dac");
  std::vector<AudioDeviceDidAutoSwitch> switches;
  const auto seen = player.bus.subscribe<AudioDeviceDidAutoSwitch>(
      Delivery::mainThread, [&](const auto& event) { switches.push_back(event); });
  player.engine->play(player.writeClock());
  ASSERT_TRUE(player.isHeardOn("dac"));
  for (int round = 0; round < 2; ++round) {
    const double before = player.engine->currentPosition();
    ASSERT_TRUE(session->removeSink("dac"));
    EXPECT_TRUE(player.playsOn("first"));
    EXPECT_GE(player.engine->currentPosition(), before - 0.2);
    ASSERT_TRUE(plug("dac"));
    EXPECT_TRUE(player.playsOn("dac"));
  }
  EXPECT_TRUE(player.isHeardOn("dac"));
  ASSERT_TRUE(player.until([&] { return switches.size() >= 4; }));
  EXPECT_EQ(switches[0].fromName, "dac sink");
  EXPECT_EQ(switches[0].toName, "first sink");
  EXPECT_EQ(switches[1].toName, "dac sink");
}

TEST_F(DeviceLifecycle, AServerThatDiesAndReturnsIsSurvived) {
  Player player("second");
  player.engine->play(player.writeClock());
  ASSERT_TRUE(player.moves());
  session->killServer();
  ASSERT_TRUE(player.until([&] { return player.engine->state() == PlaybackState::stopped; }));
  ASSERT_TRUE(session->restartServer()) << session->error();
  EXPECT_TRUE(player.playsOn("second")) << "the music goes on by itself";
  EXPECT_TRUE(player.isHeardOn("second"));

  session->killServer();
  ASSERT_TRUE(player.until([&] { return player.engine->state() == PlaybackState::stopped; }));
  const auto begin = Clock::now();
  player.engine->stop();  // the listener gave up; nothing may hang on the way out
  EXPECT_LT(Clock::now() - begin, 2s);
}

// What a suspended machine or a server in trouble looks like.
TEST_F(DeviceLifecycle, AServerThatStandsStillHoldsNobodyUp) {
  Player player("first");
  player.engine->play(player.writeClock());
  ASSERT_TRUE(player.isHeardOn("first"));
  session->freezeServer(true);
  const auto begin = Clock::now();
  const double position = player.engine->currentPosition();
  EXPECT_FALSE(player.engine->enumerateOutputDevices().empty());
  EXPECT_TRUE(player.engine->deviceCapabilities(player.engine->currentDevice()));
  player.engine->facts();
  player.engine->pause();
  EXPECT_EQ(player.engine->state(), PlaybackState::paused);
  EXPECT_LT(Clock::now() - begin, 3s);
  session->freezeServer(false);
  player.engine->resume();
  EXPECT_TRUE(player.isHeardOn("first"));
  EXPECT_GE(player.engine->currentPosition(), position - 0.2);

  session->freezeServer(true);
  const auto second = Clock::now();
  player.engine->selectOutputDevice(player.hardware->deviceForUID("second"));
  player.engine->stop();
  EXPECT_LT(Clock::now() - second, 8s);
  session->freezeServer(false);
  player.engine->play(player.writeClock());
  EXPECT_TRUE(player.isHeardOn("second"));
}

TEST_F(DeviceLifecycle, SeveralSinksPlayAsOneUntilTheLastIsGone) {
  ASSERT_TRUE(plug("kitchen"));
  ASSERT_TRUE(plug("garden"));
  Player player("second");
  int changes = 0;
  const auto seen =
      player.bus.subscribe<MultiOutputDidChange>(Delivery::mainThread, [&](auto&) { ++changes; });
  player.engine->play(player.writeClock());
  ASSERT_TRUE(player.moves());
  player.engine->enableMultiOutput({"kitchen", "garden"});
  EXPECT_EQ(player.engine->multiOutputDeviceUIDs(),
            (std::vector<std::string>{"kitchen", "garden"}));
  EXPECT_TRUE(player.until([&] { return changes == 1; }));
  EXPECT_TRUE(player.isHeardOn("kitchen"));
  EXPECT_TRUE(player.isHeardOn("garden"));
  for (const AudioDevice& device : player.engine->enumerateOutputDevices()) {
    EXPECT_FALSE(device.uid.starts_with("com.velorin.")) << device.uid;
  }

  ASSERT_TRUE(session->removeSink("kitchen"));
  EXPECT_TRUE(player.isHeardOn("garden"));
  EXPECT_FALSE(player.engine->multiOutputDeviceUIDs().empty());
  ASSERT_TRUE(session->removeSink("garden"));
  EXPECT_TRUE(player.until([&] { return player.engine->multiOutputDeviceUIDs().empty(); }));
  EXPECT_TRUE(player.playsOn("first")) << "the default";
  EXPECT_TRUE(player.isHeardOn("first"));

  player.engine->enableMultiOutput({"second", "first"});
  EXPECT_TRUE(player.isHeardOn("second"));
  session->killServer();
  EXPECT_TRUE(player.until([&] { return player.engine->multiOutputDeviceUIDs().empty(); }));
  ASSERT_TRUE(session->restartServer()) << session->error();
  EXPECT_TRUE(player.until([&] { return player.engine->state() == PlaybackState::playing; }));
  EXPECT_TRUE(player.isHeardOn(player.device()));
}

TEST_F(DeviceLifecycle, EverySinkHasItsOwnSettingsAndItsVolume) {
  Player player("first");
  double told = -1;
  const auto seen = player.bus.subscribe<HardwareVolumeDidChange>(
      Delivery::mainThread, [&](const auto& event) { told = event.volume; });
  player.engine->setIntegerMode(true);
  player.engine->setVolumeMode(VolumeMode::hardware);
  player.engine->play(player.writeClock());
  ASSERT_TRUE(player.moves());
  EXPECT_TRUE(player.engine->facts().isIntegerOutput);
  const auto on = [&](const char* sink) {
    player.engine->selectOutputDevice(player.hardware->deviceForUID(sink));
    return player.playsOn(sink);
  };
  ASSERT_TRUE(on("second"));
  EXPECT_FALSE(player.engine->facts().isIntegerOutput) << "a first visit";
  EXPECT_EQ(player.engine->volumeMode(), VolumeMode::software);
  ASSERT_TRUE(on("first"));
  EXPECT_TRUE(player.engine->facts().isIntegerOutput);
  EXPECT_EQ(player.engine->volumeMode(), VolumeMode::hardware);

  const AudioDeviceID first = player.engine->currentDevice();
  ASSERT_TRUE(player.engine->setHardwareVolume(first, 0.7f));
  EXPECT_TRUE(player.until([&] { return !player.engine->facts().output.volumeUnity; }));
  EXPECT_EQ(told, -1) << "what we set is no news";
  const std::string node = std::to_string(session->nodeId("first").value());
  test::runProgram({"pw-cli", "set-param", node, "Props", "{ channelVolumes = [ 0.125, 0.125 ] }"});
  EXPECT_TRUE(player.until([&] { return std::abs(told - 0.5) < 0.001; }));
}

}  // namespace
}  // namespace velorin
