// The whole engine over real FLAC files and a virtual device: files in, samples and events out.
#include "engine/AudioEngine.h"

#include <fstream>

#include "engine/EngineHarness.h"

namespace velorin {
namespace {

using test::asFloat;
using test::EngineHarness;
using test::FlacRecipe;
using test::leftJustified;
using test::wideDevice;

TEST(AudioEngine, DeliversEveryBitOfTheFile) {
  struct Case {
    unsigned bits, channels, rate;
    bool integer;
    double start;
  };
  const Case cases[] = {
      {8, 1, 8000, true, 0},    {8, 2, 44100, false, 0},    {12, 2, 44100, true, 0},
      {16, 2, 44100, true, 0},  {16, 2, 44100, false, 0},   {16, 1, 48000, true, 0.5},
      {20, 2, 48000, true, 0},  {24, 2, 96000, true, 0.25}, {24, 2, 96000, false, 0.25},
      {24, 6, 48000, true, 0},  {24, 8, 48000, false, 0},   {32, 2, 44100, true, 0.1},
      {16, 2, 384000, true, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.bits << " bits, " << c.channels << " ch, " << c.rate
                                    << " Hz, integer " << c.integer << ", start " << c.start);
    EngineHarness h(wideDevice(VirtualClock::unpaced));
    const Track track = h.file(
        "a.flac",
        {.channels = c.channels, .bits = c.bits, .sampleRate = c.rate, .frames = c.rate + 777});
    h.engine->setIntegerMode(c.integer);
    h.engine->setForceHighSampleRate(true);
    h.playToEnd(track, c.start);

    EXPECT_EQ(h.recorder->format().isInteger(), c.integer);
    EXPECT_EQ(h.recorder->format().sampleRate, c.rate);
    const auto from = static_cast<std::size_t>(c.start * c.rate);
    for (unsigned channel = 0; channel < c.channels; ++channel) {
      // Compared as a whole: printing millions of samples would help nobody.
      const auto& source = h.lastSamples[channel];
      const bool equal =
          c.integer ? h.recorder->integers()[channel] == leftJustified(source, c.bits, from)
                    : h.recorder->floats()[channel] == asFloat(source, c.bits, from);
      EXPECT_TRUE(equal) << "channel " << channel;
    }
  }
}

TEST(AudioEngine, ResamplesWithoutLeadingGapOrLostTail) {
  struct Case {
    unsigned rate;
    double target;
    bool integer;
  };
  for (const Case& c :
       {Case{44100, 96000, false}, Case{96000, 44100, false}, Case{44100, 48000, true}}) {
    SCOPED_TRACE(testing::Message() << c.rate << " to " << c.target);
    EngineHarness h(wideDevice(VirtualClock::unpaced));
    const Track track = h.file(
        "a.flac",
        {.bits = 24, .sampleRate = c.rate, .frames = c.rate, .signal = FlacRecipe::Signal::sine});
    h.engine->setIntegerMode(c.integer);
    h.resampleTo(c.target);
    h.playToEnd(track);

    EXPECT_EQ(h.recorder->format().sampleRate, c.target);
    std::vector<double> got;
    if (c.integer) {
      const auto samples = h.recorder->integers();
      for (std::int32_t s : samples[0]) got.push_back(s / 2147483648.0);
    } else {
      const auto samples = h.recorder->floats();
      got.assign(samples[0].begin(), samples[0].end());
    }
    EXPECT_NEAR(static_cast<double>(got.size()), c.target, 1) << "one second, no more, no less";

    // The output is the input at the same instants: compare with the source where both have a
    // sample at the same time, away from the ends.
    const double ratio = c.target / c.rate;
    double worst = 0;
    for (std::size_t i = c.rate / 4; i < c.rate * 3 / 4; ++i) {
      const double at = static_cast<double>(i) * ratio;
      if (at != std::floor(at)) continue;
      worst = std::max(
          worst, std::abs(got[static_cast<std::size_t>(at)] - h.lastSamples[0][i] / 8388608.0));
    }
    EXPECT_LT(worst, 2e-6);
  }
}

TEST(AudioEngine, PositionIsWhatTheListenerHears) {
  auto device = wideDevice(VirtualClock::manual);
  device.bufferRange = {64, 4410};
  device.latencyFrames = 441;
  EngineHarness h(device);
  const Track track = h.file("a.flac", {.frames = 44100 * 4});
  const double latency = (4410 + 441) / 44100.0;

  h.engine->play(track);
  ASSERT_EQ(h.engine->state(), PlaybackState::playing);
  EXPECT_DOUBLE_EQ(h.engine->duration(), 4.0);
  h.pull(4410);
  EXPECT_EQ(h.engine->currentPosition(), 0) << "the device still holds it";
  for (int i = 0; i < 9; ++i) h.pull(4410);
  EXPECT_NEAR(h.engine->currentPosition(), 1.0 - latency, 1e-9);

  h.engine->pause();
  EXPECT_EQ(h.engine->state(), PlaybackState::paused);
  EXPECT_FALSE(h.hardware.isRunning(h.device));
  h.engine->seek(3.0);
  EXPECT_NEAR(h.engine->currentPosition(), 3.0, 1e-9) << "a paused player jumps at once";
  EXPECT_FALSE(h.hardware.isRunning(h.device));

  h.engine->resume();
  ASSERT_TRUE(h.waitUntil([&] { return h.engine->canRender(4410); }));
  EXPECT_EQ(h.heard(4410), h.expected(3 * 44100, 4410)) << "the seek is met to the frame";

  // One seek on the heels of another starts from where that one went.
  for (int i = 0; i < 200; ++i) {
    h.engine->seek(1.0);
    h.engine->seek(h.engine->currentPosition() + 0.5);
    ASSERT_NEAR(h.engine->currentPosition(), 1.5, 1e-4);
  }
  h.engine->seek(std::numeric_limits<double>::quiet_NaN());
  EXPECT_NEAR(h.engine->currentPosition(), 1.5, 1e-4) << "no position, no seek";
  h.engine->seek(std::numeric_limits<double>::infinity());
  EXPECT_NEAR(h.engine->currentPosition(), 4.0, 1e-4) << "past the end is the last frame";
}

TEST(AudioEngine, AnnouncesWhatHappensInOrder) {
  EngineHarness h(wideDevice(VirtualClock::unpaced));
  Track track = h.file("first.flac", {.frames = 20000});
  track.title = "first";

  EXPECT_EQ(h.engine->state(), PlaybackState::stopped);
  h.engine->togglePlayPause();
  EXPECT_EQ(h.engine->state(), PlaybackState::stopped) << "nothing was ever played";

  h.playToEnd(track);
  EXPECT_EQ(h.events, (std::vector<std::string>{"state playing", "track first", "state stopped",
                                                "next auto"}));
  EXPECT_FALSE(h.engine->currentTrack());
  ASSERT_TRUE(h.engine->lastTrack());
  EXPECT_EQ(h.engine->lastTrack()->title, "first");
  EXPECT_EQ(h.engine->sourceBitDepth(), 0);

  h.events.clear();
  const int generation = h.engine->playGeneration();
  h.engine->stop();
  MainThread::instance().runReady();
  EXPECT_TRUE(h.events.empty()) << "a second stop is no news";
  EXPECT_EQ(h.engine->playGeneration(), generation + 1);

  h.engine->togglePlayPause();
  EXPECT_TRUE(h.waitFor("state playing"));
  EXPECT_TRUE(h.waitFor("track first"));
}

TEST(AudioEngine, CueTracksKeepTheirBoundsAndTheOutput) {
  EngineHarness h(wideDevice(VirtualClock::unpaced));
  Track track = h.file("album.flac", {.frames = 44100 * 3});
  struct Case {
    std::optional<double> start, end;
    std::size_t from, to;
    double duration;
  };
  const Case cases[] = {
      {1.0, 2.0, 44100, 88200, 1.0},
      {0.0, 1.5, 0, 66150, 1.5},
      {100.0 / 75, 101.0 / 75, 58800, 59388, 1.0 / 75},
      {2.0, std::nullopt, 88200, 132300, 1.0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.from << " to " << c.to);
    track.cueStartTime = c.start;
    track.cueEndTime = c.end;
    h.events.clear();
    h.engine->play(track);
    EXPECT_NEAR(h.engine->duration(), c.duration, 1e-9);
    ASSERT_TRUE(h.waitFor("next auto"));
    EXPECT_TRUE(h.recorder->floats()[0] == h.expected(c.from, c.to - c.from));
  }
}

TEST(AudioEngine, AJumpInsideTheCueFileLeavesTheOutputRunning) {
  EngineHarness h(wideDevice(VirtualClock::manual));
  Track track = h.file("album.flac", {.frames = 44100 * 3});
  track.cueStartTime = 0.5;
  track.cueEndTime = 1.0;
  h.engine->play(track);
  h.pull(1000);
  MainThread::instance().runReady();
  h.events.clear();

  track.title = "second";
  track.cueStartTime = 2.0;
  track.cueEndTime = 2.5;
  h.engine->play(track);
  EXPECT_EQ(h.hardware.callCount(VirtualOperation::start), 1);
  EXPECT_DOUBLE_EQ(h.engine->duration(), 0.5);
  ASSERT_TRUE(h.waitUntil([&] { return h.engine->canRender(1000); }));
  EXPECT_TRUE(h.heard(1000) == h.expected(88200, 1000));
  MainThread::instance().runReady();
  EXPECT_EQ(h.events, std::vector<std::string>{"track second"}) << "no change of state";
}

TEST(AudioEngine, ADeviceWithoutIntegersGetsTheTrackFromItsStartAsFloat) {
  struct Case {
    double start;
    double target;  // 0: not resampled
  };
  for (const Case& c : {Case{0, 0}, Case{0.5, 0}, Case{0, 96000}}) {
    SCOPED_TRACE(testing::Message() << c.start << " s, to " << c.target);
    auto device = wideDevice(VirtualClock::unpaced);
    device.acceptsInteger = false;
    EngineHarness h(device);
    const Track track = h.file("a.flac", {.bits = 24, .sampleRate = 48000, .frames = 96000});
    h.engine->setIntegerMode(true);
    if (c.target > 0) h.resampleTo(c.target);
    h.playToEnd(track, c.start);

    EXPECT_TRUE(h.log.contains("⚠️ HAL rejected format (flags=0x24), falling back to Float32"));
    EXPECT_TRUE(h.recorder->format().isFloat());
    if (c.target > 0) {
      EXPECT_EQ(h.recorder->format().sampleRate, c.target);
      EXPECT_NEAR(static_cast<double>(h.recorder->floats()[0].size()), 192000, 1);
    } else {
      const auto from = static_cast<std::size_t>(c.start * 48000);
      EXPECT_TRUE(h.recorder->floats()[1] == asFloat(h.lastSamples[1], 24, from));
    }
  }
}

TEST(AudioEngine, FailuresOfTheDeviceAreReportedAndLeaveNoUnit) {
  struct Case {
    VirtualOperation operation;
    const char* message;
    bool plays;
  };
  const Case cases[] = {
      {VirtualOperation::createOutputUnit, "❌ Cannot create audio unit: ", false},
      {VirtualOperation::setDevice, "❌ Failed to set output device: ", false},
      {VirtualOperation::setBufferFrameSize, "⚠️ Could not set buffer frame size to ", true},
      {VirtualOperation::setMaximumFramesPerSlice, "⚠️ Failed to set MaximumFramesPerSlice",
       true},
      {VirtualOperation::initialize, "❌ AudioUnitInitialize failed: ", false},
      {VirtualOperation::start, "❌ AudioOutputUnitStart failed: ", false},
      {VirtualOperation::setNominalSampleRate, "⚠️ Failed to set sample rate to 48000Hz", true},
      {VirtualOperation::setHogOwner, "⚠️ Failed to enable hog mode: ", true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.message);
    EngineHarness h(wideDevice(VirtualClock::manual));
    const Track track = h.file("a.flac", {.sampleRate = 48000, .frames = 48000});
    h.hardware.failNext(c.operation, AudioStatus::failure(-EIO));
    if (c.operation == VirtualOperation::setHogOwner) h.engine->setExclusiveMode(true);
    h.engine->play(track);
    EXPECT_TRUE(h.log.contains(c.message));
    EXPECT_EQ(h.engine->state(), c.plays ? PlaybackState::playing : PlaybackState::stopped);
    EXPECT_EQ(h.hardware.isRunning(h.device), c.plays);
    EXPECT_EQ(h.log.contains("❌ Failed to start audio output"), !c.plays);

    h.engine->play(track);
    EXPECT_EQ(h.engine->state(), PlaybackState::playing) << "the next play is not affected";
  }
}

TEST(AudioEngine, FilesThatCannotPlayAreNamed) {
  EngineHarness h(wideDevice(VirtualClock::manual));
  std::ofstream(h.folder / "empty.flac") << "";
  std::ofstream(h.folder / "text.flac") << "this is not music";
  std::ofstream(h.folder / "song.xyz") << "fLaC";
  std::filesystem::create_directory(h.folder / "folder.flac");

  for (const char* name : {"missing.flac", "empty.flac", "text.flac", "song.xyz", "folder.flac"}) {
    SCOPED_TRACE(name);
    h.events.clear();
    Track track = h.trackOf(name);
    track.title = " \n";
    h.engine->play(track);
    EXPECT_TRUE(h.waitFor(std::string("unavailable ") + name)) << "a blank title shows the file";
    EXPECT_EQ(h.engine->state(), PlaybackState::stopped);
    EXPECT_FALSE(h.hardware.isRunning(h.device));
  }
}

TEST(AudioEngine, LyingHeadersAndVanishingFilesEndTheTrackQuietly) {
  struct Case {
    const char* name;
    std::function<void(std::vector<std::byte>&)> damage;
    double duration;
  };
  const Case cases[] = {
      {"unknown length", [](auto& bytes) { test::patchStreamInfo(bytes, {.totalSamples = 0}); }, 0},
      {"claims more", [](auto& bytes) { test::patchStreamInfo(bytes, {.totalSamples = 441000}); },
       10},
      {"cut in the middle", [](auto& bytes) { bytes.resize(bytes.size() / 2); }, 1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EngineHarness h(wideDevice(VirtualClock::unpaced));
    auto made = test::FlacFixture::make({.frames = 44100});
    c.damage(made.bytes);
    made.write(h.folder / "a.flac");
    h.engine->play(h.trackOf("a.flac"));
    EXPECT_DOUBLE_EQ(h.engine->duration(), c.duration);
    EXPECT_TRUE(h.waitFor("next auto"));
    const auto heard = h.recorder->floats()[0];
    EXPECT_GT(heard.size(), 10000u);
    auto expected = asFloat(made.samples[0], 16);
    expected.resize(heard.size());
    EXPECT_TRUE(heard == expected) << "what is there is played as it is";
  }
}

TEST(AudioEngine, ALostDeviceHandsTheMusicToTheNext) {
  EngineHarness h(wideDevice(VirtualClock::manual));
  const auto named = [](const char* uid, const char* name) {
    auto device = wideDevice(VirtualClock::manual);
    device.uid = uid;
    device.name = name;
    return device;
  };
  const Track track = h.file("a.flac", {.frames = 44100 * 3});
  h.engine->play(track);
  const AudioDeviceID other = h.hardware.addDevice(named("second", "Second"));
  while (h.engine->currentPosition() < 1.0) h.pull(4410);
  const double position = h.engine->currentPosition();

  h.hardware.removeDevice(h.device);
  ASSERT_TRUE(h.waitFor("switched Virtual output to Second"));
  ASSERT_TRUE(h.waitUntil([&] { return h.hardware.isRunning(other); }));
  EXPECT_EQ(h.engine->state(), PlaybackState::playing);
  EXPECT_NEAR(h.engine->currentPosition(), position, 1e-5);
  EXPECT_EQ(h.engine->currentDevice(), other);

  // And when nothing is left, until something comes.
  h.hardware.removeDevice(other);
  ASSERT_TRUE(h.waitFor("state stopped"));
  const AudioDeviceID returned = h.hardware.addDevice(named("third", "Third"));
  ASSERT_TRUE(h.waitUntil([&] { return h.hardware.isRunning(returned); }));
  EXPECT_NEAR(h.engine->currentPosition(), position, 1e-5);
}

TEST(AudioEngine, ExclusiveAccessFollowsTheSetting) {
  EngineHarness h(wideDevice(VirtualClock::manual));
  const Track track = h.file("a.flac", {.frames = 44100});
  h.engine->setExclusiveMode(true);
  EXPECT_NE(h.hardware.hogOwner(h.device), -1);
  h.engine->play(track);
  h.engine->stop();
  EXPECT_NE(h.hardware.hogOwner(h.device), -1) << "bound to the setting, not to the track";
  h.engine->play(track);
  h.engine->setExclusiveMode(false);
  EXPECT_EQ(h.hardware.hogOwner(h.device), -1);
  EXPECT_EQ(h.engine->state(), PlaybackState::playing) << "the music goes on";
}

TEST(AudioEngine, APauseLosesNothingThatTheDeviceDropped) {
  for (double target : {0.0, 96000.0}) {
    SCOPED_TRACE(target);
    auto device = wideDevice(VirtualClock::manual);
    device.framesDroppedOnStop = 3000;
    EngineHarness h(device);
    if (target > 0) h.resampleTo(target);
    h.engine->play(h.file("a.flac", {.sampleRate = 48000, .frames = 48000 * 2}));
    for (int i = 0; i < 5; ++i) h.pull(2000);
    h.engine->pause();
    const double heard = 7000 / (target > 0 ? target : 48000.0);
    EXPECT_NEAR(h.engine->currentPosition(), heard, 1e-4);
    h.engine->resume();
    ASSERT_TRUE(h.waitUntil([&] { return h.engine->canRender(1000); }));
    const std::vector<float> next = h.heard(1000);
    if (target > 0) continue;
    EXPECT_TRUE(next == h.expected(7000, 1000)) << "to the frame";
  }
}

TEST(AudioEngine, ResamplesItselfWhereNobodyElseConverts) {
  auto device = wideDevice(VirtualClock::unpaced);
  device.rates = {{48000, 48000}, {96000, 96000}};
  device.nominalRate = 48000;
  device.convertsRates = false;
  EngineHarness h(device);
  h.playToEnd(h.file("a.flac", {.frames = 44100}));
  EXPECT_EQ(h.recorder->format().sampleRate, 48000);
  EXPECT_NEAR(static_cast<double>(h.recorder->floats()[0].size()), 48000, 1);
}

TEST(AudioEngine, WhatCannotPlayExclusivelyPlaysShared) {
  EngineHarness h(wideDevice(VirtualClock::manual));
  const Track track = h.file("a.flac", {.frames = 44100});
  h.engine->setExclusiveMode(true);
  h.hardware.failNext(VirtualOperation::initialize, AudioStatus::failure(-EINVAL));
  h.engine->play(track);
  EXPECT_EQ(h.engine->state(), PlaybackState::playing);
  EXPECT_EQ(h.hardware.hogOwner(h.device), -1);
  EXPECT_TRUE(h.log.contains("going on in shared mode"));
  h.engine->play(track);
  EXPECT_NE(h.hardware.hogOwner(h.device), -1) << "the next track gets its chance";
}

TEST(AudioEngine, SaysWhetherTheDeviceFollowedTheRate) {
  struct Case {
    double sticksAt;
    bool verified;
  };
  for (const Case& c : {Case{0, true}, Case{44100, false}}) {
    auto device = wideDevice(VirtualClock::manual);
    device.rateThatSticks = c.sticksAt;
    EngineHarness h(device);
    h.engine->setIntegerMode(true);
    h.engine->play(h.file("a.flac", {.sampleRate = 96000, .frames = 96000}));
    EXPECT_EQ(h.engine->state(), PlaybackState::playing);
    EXPECT_EQ(h.engine->facts().deviceRateVerified, c.verified);
    EXPECT_EQ(judge(h.engine->facts()).bitPerfect, c.verified) << judge(h.engine->facts()).reason;
    EXPECT_EQ(h.log.contains("⚠️ DAC rate 44100Hz ≠ output 96000Hz"), !c.verified);
  }
}

}  // namespace
}  // namespace velorin
