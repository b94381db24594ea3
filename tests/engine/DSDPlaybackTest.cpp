// One-bit audio through the whole engine: rates, joins and restarts.
#include "engine/EngineHarness.h"
#include "engine/decoders/DecoderFactory.h"
#include "support/DSDFixture.h"

namespace velorin {
namespace {

using test::EngineHarness;

constexpr std::size_t kBytes = 35'280;  // 0.1 s of DSD64: 8820 frames at 88.2 kHz

VirtualDeviceDescription dsdDevice(VirtualClock clock) {
  auto device = test::wideDevice(clock);
  device.bufferRange = {64, 4096};
  return device;
}

struct DSDHarness : EngineHarness {
  using EngineHarness::EngineHarness;

  Track write(const std::string& name, const test::OneBitSound& sound,
              DSDRate rate = DSDRate::dsd64) {
    const auto format = name.ends_with("dff") ? DSDFormat::dsdiff : DSDFormat::dsf;
    test::writeFile(folder / name, test::dsdFile(sound, {.format = format, .rate = rate}));
    return trackOf(name);
  }

  bool logged(const std::string& part) { return log.contains(part); }
};

/// What the decoder alone makes of a file, first channel.
std::vector<float> decoded(const std::string& path, int decimation) {
  auto opened = DecoderFactory::open(path);
  FileDecoder& decoder = *opened.value();
  decoder.dsd()->prepareDSDtoPCM(decimation);
  PlanarBuffers buffers(decoder.channels(), 4096, sizeof(float));
  std::vector<float> samples;
  while (const auto frames = decoder.read(buffers.list(), 4096, true).frames) {
    const auto* const first = buffers.list().channel<float>(0);
    samples.insert(samples.end(), first, first + frames);
  }
  return samples;
}

TEST(DSDPlayback, PlaysAtTheRateOfTheDeviceAndJoinsWithoutASeam) {
  DSDHarness h(dsdDevice(VirtualClock::unpaced));
  const auto sound = test::modulatedSine({.bytes = 2 * kBytes});
  const Track whole = h.write("whole.dsf", sound);
  const Track a = h.write("a.dsf", test::cut(sound, 0, kBytes));
  const Track b = h.write("b.dff", test::cut(sound, kBytes, kBytes));
  const Track pcm = h.file("pcm.flac", {.sampleRate = 44100, .frames = 5000});
  // Neither of these has a say in one-bit audio.
  h.engine->setIntegerMode(true);
  h.engine->setCrossfadePlaybackEnabled(true);
  h.resampleTo(48000);

  h.engine->setNextTrack(b);
  h.playToEnd(a);
  EXPECT_EQ(std::ranges::count(h.events, "track b.dff gapless"), 1);
  EXPECT_EQ(h.recorder->format(), StreamFormat::planarFloat(88200, 2));
  EXPECT_TRUE(h.recorder->floats()[0] == decoded(whole.filePath, 4)) << "no seam, no loss";
  EXPECT_TRUE(
      h.logged("▶️ Playing DSD (PCM): a.dsf [DSD64 → PCM 88200Hz] dsd2pcm 8:1 + 4:1 FIR"));
  EXPECT_TRUE(h.logged("🔗 DSD gapless → b.dff [DSD64 → PCM 88200Hz]"));

  // One-bit audio and PCM are no match, either way round.
  for (const auto& [first, second] : {std::pair(a, pcm), std::pair(pcm, a)}) {
    h.engine->setNextTrack(second);
    h.playToEnd(first);
    EXPECT_EQ(h.events.back(), "next auto");
    EXPECT_EQ(std::ranges::count(h.events, "track " + second.title + " gapless"), 0);
  }
}

TEST(DSDPlayback, RestartsWithoutGivingUpTheDevice) {
  DSDHarness h(dsdDevice(VirtualClock::manual));
  const Track a = h.write("a.dsf", test::modulatedSine({.bytes = 4 * kBytes}));
  const Track b =
      h.write("b.dsf",
              test::modulatedSine({.rate = DSDRate::dsd128, .bytes = 4 * kBytes, .frequency = 300}),
              DSDRate::dsd128);
  const Track mono = h.write("mono.dff", test::modulatedSine({.channels = 1}));
  const auto opened = [&] { return h.hardware.callCount(VirtualOperation::initialize); };
  const auto heardOf = [&](const Track& track, int decimation, std::size_t from) {
    const auto all = decoded(track.filePath, decimation);
    const auto begin = all.begin() + static_cast<std::ptrdiff_t>(from);
    return std::vector<float>(begin, begin + 4096);
  };

  h.engine->play(a);
  EXPECT_EQ(h.heard(4096), heardOf(a, 4, 0));
  EXPECT_TRUE(h.engine->isDSDPlayback());
  EXPECT_TRUE(h.engine->isDSDtoPCM());
  EXPECT_TRUE(h.engine->dsdRateDowngraded() == false) << "176.4 kHz is not offered";
  EXPECT_EQ(h.engine->sourceBitDepth(), 1);
  EXPECT_DOUBLE_EQ(h.engine->duration(), 0.4);
  EXPECT_EQ(h.engine->facts().dsdRate, 2822400);
  ASSERT_EQ(opened(), 1);

  for (const bool paused : {false, true}) {
    if (paused) h.engine->pause();
    const int generation = h.engine->playGeneration();
    const double start = paused ? 0.05 : 0;
    h.engine->play(b, start);
    EXPECT_EQ(h.engine->state(), PlaybackState::playing);
    EXPECT_EQ(h.heard(4096), heardOf(b, 8, static_cast<std::size_t>(start * 88200)));
    EXPECT_EQ(opened(), 1) << "the device was opened once";
    EXPECT_EQ(h.engine->playGeneration(), generation + 1);
  }
  EXPECT_EQ(h.engine->lastTrack()->title, "b.dsf");
  EXPECT_TRUE(h.logged("[DSD128 → PCM 88200Hz] dsd2pcm 8:1 + 8:1 FIR [quick restart]"));
  // What an output unit tells is still heard.
  ASSERT_TRUE(h.hardware.setNominalSampleRate(h.device, 48000).ok());
  h.hardware.raise(h.device, OutputEvent::formatChanged);
  EXPECT_TRUE(h.waitUntil([&] { return !h.engine->facts().deviceRateVerified; }));

  h.engine->play(mono);
  EXPECT_EQ(h.engine->state(), PlaybackState::playing);
  EXPECT_EQ(opened(), 2) << "other channels want another stream";
  h.hardware.failNext(VirtualOperation::start, AudioStatus::failure(-EIO), 1);
  h.engine->play(mono);
  EXPECT_TRUE(h.logged("❌ DSD quick restart AudioOutputUnitStart failed: "));
  EXPECT_EQ(h.engine->state(), PlaybackState::playing) << "started from scratch";
  EXPECT_EQ(opened(), 3);
}

}  // namespace
}  // namespace velorin
