// The ALSA backend on a plug-in with a real clock and a server behind it that can die.
#include <gtest/gtest.h>

#include <cmath>

#include "foundation/SerialQueue.h"
#include "platform/alsa/AlsaPlayback.h"
#include "support/PipeWireSession.h"

namespace velorin {
namespace {

using namespace std::chrono_literals;
using namespace test;
using vector::PCMWord;

constexpr const char* kSink = "null48000";

class AlsaPipeWire : public ::testing::Test {
 protected:
  void SetUp() override {
    VELORIN_NEEDS_PIPEWIRE();
    session = std::make_unique<PipeWireSession>(std::vector<PipeWireSinkSpec>{{kSink, 48'000}});
    ASSERT_TRUE(session->start()) << session->error();
    auto& configuration = AlsaConfiguration::instance();
    configuration.add("wire", fmt::format("type pipewire playback_node \"{}\"", kSink));
  }
  // A PCM to the sink that keeps every byte.
  std::string tapped(const std::string& name) {
    auto& configuration = AlsaConfiguration::instance();
    configuration.add(name, fmt::format("type file slave.pcm \"wire\" file \"{}\" format raw",
                                        configuration.tap(name).string()));
    return name;
  }
  std::unique_ptr<PipeWireSession> session;
};

TEST_F(AlsaPipeWire, PlaysBitForBitAtThePaceOfTheDevice) {
  const std::vector<std::pair<StreamFormat, PCMWord>> cases = {
      {kInt16, PCMWord::int16}, {kInt24, PCMWord::int32}, {kFloat, PCMWord::float32}};
  for (std::size_t i = 0; i < cases.size(); ++i) {
    SCOPED_TRACE(i);
    const auto& [format, word] = cases[i];
    const std::string pcm = tapped(fmt::format("tapwire{}", i));
    Playing playing(format);
    const AudioStatus status = playing.play(pcm);
    ASSERT_TRUE(status.ok()) << status.description();
    const auto before = std::chrono::steady_clock::now();
    const std::uint64_t first = playing.renderer.frames;
    ASSERT_TRUE(playing.renders(first + 48'000));
    const auto taken = std::chrono::steady_clock::now() - before;
    EXPECT_GT(taken, 700ms) << "a second of sound";
    // Pause and resume in the middle of it.
    playing.unit->stop();
    ASSERT_TRUE(playing.unit->start().ok());
    ASSERT_TRUE(playing.renders(playing.renderer.frames + 12'000));
    playing.unit->uninitialize();
    EXPECT_EQ(playing.events.lost(), 0);
    EXPECT_FALSE(playing.renderer.leftScope);
    const std::vector<std::byte> bytes = AlsaConfiguration::instance().tapped(pcm);
    ASSERT_GE(bytes.size(), 48'000 * 2 * vector::bytesPerWord(word));
    EXPECT_TRUE(expectedBytes(format, word, bytes.size()) == bytes);
  }
}

TEST_F(AlsaPipeWire, TheEndOfTheServerIsALostDeviceAndNoHang) {
  tapped("tapwire_dying");
  for (const char* pcm : {"wire", "tapwire_dying"}) {
    SCOPED_TRACE(pcm);
    Playing playing(kFloat);
    const AudioStatus status = playing.play(pcm);
    ASSERT_TRUE(status.ok()) << status.description();
    ASSERT_TRUE(playing.renders(24'000));
    session->killServer();
    EXPECT_TRUE(eventually([&] { return playing.events.lost() == 1; }));
    const std::uint32_t calls = playing.renderer.calls;
    const auto before = std::chrono::steady_clock::now();
    playing.unit->stop();
    EXPECT_EQ(playing.unit->start().code, -ENODEV);
    playing.unit->uninitialize();
    EXPECT_LT(std::chrono::steady_clock::now() - before, 3s);
    EXPECT_EQ(playing.renderer.calls, calls);
    EXPECT_EQ(playing.events.lost(), 1);
    EXPECT_FALSE(playing.unit->initialize().ok()) << "there is no server";
    ASSERT_TRUE(session->restartServer()) << session->error();
    EXPECT_TRUE(playing.unit->initialize().ok());
    EXPECT_TRUE(playing.unit->start().ok());
  }
}

TEST_F(AlsaPipeWire, AFrozenServerIsALostDeviceToo) {
  Playing playing(kFloat);
  ASSERT_TRUE(playing.play("wire").ok());
  ASSERT_TRUE(playing.renders(24'000));
  session->freezeServer(true);
  EXPECT_TRUE(eventually([&] { return playing.events.lost() == 1; }));
  const auto before = std::chrono::steady_clock::now();
  playing.unit->stop();
  EXPECT_LT(std::chrono::steady_clock::now() - before, 3s);
  session->freezeServer(false);
  playing.unit->uninitialize();
}

// The plug-in's mixer has one control, "Master", which is the server's default sink.
TEST_F(AlsaPipeWire, TheVolumeIsTheMixersAndOnlyForeignChangesAreNews) {
  AlsaConfiguration::instance().addControl("wire", "type pipewire");
  AlsaAudioHardware hardware({.hardware = [] { return std::vector<AlsaPcmAddress>(); },
                              .nodeFolder = session->folder(),
                              .offersDefault = false});
  const AudioDeviceID wire = hardware.deviceForUID("alsa:wire");
  ASSERT_TRUE(hardware.hasVolume(wire, 0));
  EXPECT_EQ(hardware.volume(wire, 1), 1.0f);
  EXPECT_FALSE(hardware.hasVolume(wire, 3));
  SerialQueue queue("com.velorin.test");
  std::atomic<int> changes = 0;
  const auto listener =
      hardware.addListener(AudioProperty::volume, wire, 0, queue, [&] { ++changes; });
  ASSERT_TRUE(listener);
  for (const float value : {0.9f, 0.4f, 0.0f, 0.6f}) {
    ASSERT_TRUE(hardware.setVolume(wire, 0, value).ok());
    EXPECT_NEAR(*hardware.volume(wire, 0), value, 0.02f);
  }
  EXPECT_EQ(hardware.setVolume(wire, 0, std::nanf("")).code, -EINVAL);
  // The mixer knows both channels, and brings the balance back from silence.
  ASSERT_TRUE(hardware.setVolume(wire, 2, 0.3f).ok());
  ASSERT_TRUE(hardware.setVolume(wire, 0, 0).ok());
  ASSERT_TRUE(hardware.setVolume(wire, 0, 1).ok());
  EXPECT_NEAR(*hardware.volume(wire, 2), 0.5f, 0.02f);
  EXPECT_EQ(changes, 0);

  const std::string node = std::to_string(session->nodeId(kSink).value());
  runProgram({"pw-cli", "set-param", node, "Props", "{ channelVolumes = [ 0.125, 0.125 ] }"});
  EXPECT_TRUE(eventually([&] { return changes > 0; }));
  EXPECT_TRUE(eventually([&] { return hardware.volume(wire, 0) < 0.6f; }));
  session->killServer();
  EXPECT_TRUE(eventually([&] { return !hardware.hasVolume(wire, 0); }));
  EXPECT_FALSE(hardware.setVolume(wire, 0, 1).ok());
}

}  // namespace
}  // namespace velorin
