// Pure decisions: device rate and resampling, the format in the ring, the verdict on the path.
#include "engine/rates/SampleRatePlan.h"

#include <gtest/gtest.h>

#include "engine/PlaybackFacts.h"
#include "engine/output/ClientFormat.h"
#include "engine/rates/DSDRatePlan.h"

namespace velorin {
namespace {

using Strategy = SampleRateStrategy;

constexpr char kPlatformConverts[] =
    "ℹ️ Will play with HAL sample rate conversion (not bit-perfect)";

const std::vector<double> kUpTo192 = {44100, 48000, 88200, 96000, 176400, 192000};
const std::vector<double> kUpTo384 = {44100, 48000, 96000, 192000, 384000};

RateSettings with(Strategy strategy, int multiplier = RateSettings{}.multiplier) {
  return {.strategy = strategy, .multiplier = multiplier};
}
RateSettings fixedAt(double rate) {
  return {.strategy = Strategy::fixed, .fixedRate = rate};
}
RateSettings forced(RateSettings settings) {
  settings.forceHighRate = true;
  return settings;
}

std::string upsampling(std::string_view how) {
  return fmt::format("🔄 Upsampling: {}", how);
}
std::string downsampling(std::string_view how) {
  return fmt::format("🔄 Downsampling: {}", how);
}
std::string tooSmall(int frames, int rate, int instead) {
  return fmt::format("⚠️ Buffer {} frames too small for {}Hz → using {}Hz", frames, rate,
                     instead);
}

void expectPlan(const char* what, const RateSettings& settings, const RateOffer& offer,
                double source, double deviceRate, double targetRate,
                const std::vector<std::string>& before = {},
                const std::vector<std::string>& after = {}) {
  SCOPED_TRACE(what);
  const RatePlan plan = planRates(settings, offer, source);
  EXPECT_EQ(plan.deviceRate, deviceRate);
  EXPECT_EQ(plan.targetRate, targetRate);
  EXPECT_EQ(plan.clientRate(source), targetRate > 0 ? targetRate : source);
  EXPECT_EQ(plan.linesBefore, before);
  EXPECT_EQ(plan.linesAfter, after);
}

TEST(SampleRatePlan, EveryStrategyAndEdge) {
  const RateSettings native;
  const RateSettings maximum = with(Strategy::max);
  const RateSettings twice = with(Strategy::powerOf2, 2);
  const RateSettings fourTimes = with(Strategy::powerOf2, 4);
  const std::vector<std::string> platform = {kPlatformConverts};
  const std::string x2 = upsampling("44100Hz → 88200Hz (×2.0)");
  const std::string x4 = upsampling("44100Hz → 176400Hz (×4.0)");
  const std::vector<double> two = {44100, 48000};
  expectPlan("follows the source", native, {kUpTo192, 16384}, 96000, 96000, 0);
  // Nobody else converts: the lowest rate that keeps the band; the highest where none does;
  // one that is lowered for the buffer.
  expectPlan("up", native, {{192000, 48000, 96000}, 16384, false}, 44100, 48000, 48000, {},
             {upsampling("44100Hz → 48000Hz (×1.1)")});
  expectPlan("down", native, {{32000, 44100}, 16384, false}, 192001, 44100, 44100, {},
             {downsampling("192001Hz → 44100Hz (×0.2)")});
  expectPlan("lowered", native, {{96000, 192000}, 4096, false}, 192000, 96000, 96000,
             {tooSmall(4096, 192000, 96000)}, {downsampling("192000Hz → 96000Hz (×0.5)")});
  expectPlan("half of what is not offered", native, {two, 16384}, 96000, 48000, 0,
             {tooSmall(16384, 96000, 48000)});
  expectPlan("nothing in the source's family", native, {{48000}, 16384}, 44100, 0, 0, platform);
  expectPlan("no list", native, {{}, 16384}, 44100, 0, 0, platform);
  expectPlan("inexact rates", native, {{44099.4, 48000.6}, 4096}, 44100, 44100, 0);
  expectPlan("1 Hz off is offered", native, {{44101}, 4096}, 44100, 44100, 0);
  expectPlan("more than 1 Hz off is not", native, {{44101.5}, 4096}, 44100, 0, 0, platform);
  expectPlan("buffer of 40 ms exactly passes", native, {kUpTo192, 7680}, 192000, 192000, 0);
  expectPlan("one frame less does not", native, {kUpTo192, 7679}, 192000, 96000, 0,
             {tooSmall(7679, 192000, 96000)});
  expectPlan("384 kHz through 4096 frames", native, {kUpTo384, 4096}, 384000, 96000, 0,
             {tooSmall(4096, 384000, 96000)});
  expectPlan("unless forced", forced(native), {kUpTo384, 4096}, 384000, 384000, 0);
  expectPlan("no rate has room for 40 ms", native, {kUpTo192, 300}, 44100, 0, 0, platform);

  expectPlan("x8 not offered, x4 is", with(Strategy::powerOf2, 8), {kUpTo192, 16384}, 44100, 176400,
             176400, {x4});
  expectPlan("halving x5 ends above 1", with(Strategy::powerOf2, 5), {kUpTo192, 16384}, 44100,
             88200, 88200, {x2});
  expectPlan("no multiple offered, the source is", fourTimes, {two, 4096}, 44100, 44100, 0);
  expectPlan("neither a multiple nor a part", twice, {{48000}, 4096}, 44100, 0, 0, platform);
  expectPlan("only a part of the source", twice, {{48000}, 4096}, 96000, 48000, 48000,
             {downsampling("96000Hz → 48000Hz (×0.5)")});
  // Buffer too small for the target: the half is another rate, or the source.
  expectPlan("another rate", fourTimes, {kUpTo192, 4096}, 44100, 88200, 88200,
             {x4, tooSmall(4096, 176400, 88200)},
             {"🔄 Resampling adjusted: 44100Hz → 88200Hz (×2.0)"});
  expectPlan("the source", twice, {kUpTo192, 3000}, 44100, 44100, 0,
             {x2, tooSmall(3000, 88200, 44100)},
             {"🔄 Resampling disabled: DAC rate matches source rate"});
  expectPlan("the same, forced", forced(twice), {kUpTo192, 3000}, 44100, 88200, 88200, {x2});
  expectPlan("powerOf2, no list", twice, {{}, 4096}, 44100, 0, 0, platform);

  expectPlan("max is not lowered for the buffer", maximum, {kUpTo384, 512}, 48000, 384000, 384000,
             {upsampling("48000Hz → 384000Hz (×8.0)")});
  expectPlan("max at the top already", maximum, {kUpTo192, 512}, 192000, 192000, 0);
  expectPlan("max, whatever the order", maximum, {{96000, 48000}, 512}, 44100, 96000, 96000,
             {upsampling("44100Hz → 96000Hz (×2.2)")});
  expectPlan("max, no list", maximum, {{}, 512}, 44100, 0, 0, platform);

  expectPlan("fixed, offered", fixedAt(96000), {kUpTo192, 512}, 44100, 96000, 96000,
             {upsampling("44100Hz → 96000Hz (×2.2)")});
  expectPlan("fixed, nearest", fixedAt(96000), {two, 512}, 44100, 48000, 48000,
             {upsampling("44100Hz → 48000Hz (×1.1)")});
  expectPlan("fixed, equally near: the first", fixedAt(60000), {{72000, 48000}, 512}, 44100, 72000,
             72000, {upsampling("44100Hz → 72000Hz (×1.6)")});
  expectPlan("fixed downward", fixedAt(44100), {two, 512}, 192000, 44100, 44100,
             {downsampling("192000Hz → 44100Hz (×0.2)")});
  expectPlan("fixed at the source", fixedAt(44100), {kUpTo192, 512}, 44100, 44100, 0);
  expectPlan("fixed, never chosen", fixedAt(0), {kUpTo192, 512}, 48000, 48000, 0);
  expectPlan("fixed, no list", fixedAt(96000), {{}, 512}, 44100, 0, 0, platform);
}

TEST(SampleRatePlan, CandidatesHalveDownTo8000) {
  EXPECT_EQ(rateCandidates(44100), (std::vector<double>{44100, 22050, 11025}));
  EXPECT_EQ(rateCandidates(8000), (std::vector<double>{8000}));
  EXPECT_EQ(rateCandidates(64000), (std::vector<double>{64000, 32000, 16000, 8000}));
  EXPECT_TRUE(rateCandidates(7999).empty());
  EXPECT_TRUE(rateCandidates(0).empty());
}

TEST(ClientFormat, HoldsEveryBitOfTheSource) {
  struct Case {
    bool integerWanted;
    int depth;
    std::uint32_t bits, bytes, flags;
  };
  for (const Case& c :
       {Case{false, 16, 32, 4, 41}, Case{false, 24, 32, 4, 41}, Case{true, 0, 32, 4, 41},
        Case{true, 1, 16, 2, 44}, Case{true, 8, 16, 2, 44}, Case{true, 16, 16, 2, 44},
        Case{true, 17, 32, 4, 44}, Case{true, 20, 32, 4, 44}, Case{true, 23, 32, 4, 44},
        Case{true, 24, 32, 4, 36}, Case{true, 25, 32, 4, 44}, Case{true, 32, 32, 4, 44}}) {
    SCOPED_TRACE(testing::Message() << "integer " << c.integerWanted << ", depth " << c.depth);
    const StreamFormat format = clientFormatFor(c.integerWanted, c.depth, 88200, 6);
    const StreamFormat expected{.sampleRate = 88200,
                                .formatID = kLinearPCM,
                                .formatFlags = c.flags,
                                .bytesPerPacket = c.bytes,
                                .framesPerPacket = 1,
                                .bytesPerFrame = c.bytes,
                                .channelsPerFrame = 6,
                                .bitsPerChannel = c.bits};
    EXPECT_EQ(format, expected) << format.description();
  }
}

TEST(ClientFormat, FileFormatIsInterleaved) {
  const StreamFormat integers = fileFormatOf(44100, 2, 24, false);
  EXPECT_EQ(integers, (StreamFormat{.sampleRate = 44100,
                                    .formatFlags = 12,
                                    .bytesPerPacket = 6,
                                    .bytesPerFrame = 6,
                                    .channelsPerFrame = 2,
                                    .bitsPerChannel = 24}));
  EXPECT_EQ(fileFormatOf(44100, 2, 32, true).formatFlags, 9u);
}

TEST(DSDRatePlan, TheHighestRateThatTheBufferCarries) {
  using enum DSDRate;
  const std::vector<double> all = {44100, 48000, 88200, 96000, 176400, 192000, 352800, 384000};
  const std::vector<double> from48 = {48000, 96000, 192000};
  struct Case {
    const char* what;
    RateOffer offer;
    DSDRate source;
    DSDRatePlan plan;
    bool forced = false;
  };
  const Case cases[] = {
      {"room for all", {all, 16384}, dsd64, {dsd64, 352800, 1, true, false}},
      {"room for 40 ms of 88.2 kHz", {all, 4096}, dsd64, {dsd64, 88200, 4, true, true}},
      {"forced", {all, 4096}, dsd64, {dsd64, 352800, 1, true, false}, true},
      {"40 ms exactly", {all, 7056}, dsd128, {dsd128, 176400, 4, true, true}},
      {"one frame less", {all, 7055}, dsd128, {dsd128, 88200, 8, true, true}},
      {"nothing better offered", {{44100, 48000}, 4096}, dsd512, {dsd512, 44100, 64, true, false}},
      {"inexact", {{88200.9}, 16384}, dsd256, {dsd256, 88200, 16, true, false}},
      {"too inexact", {{88201.5}, 16384}, dsd64, {dsd64, 44100, 8, false, false}},
      {"another family", {from48, 16384}, dsd64, {dsd64, 44100, 8, false, false}},
      {"no room at all", {all, 300}, dsd64, {dsd64, 44100, 8, true, false}},
      {"no list", {{}, 4096}, dsd64, {dsd64, 44100, 8, false, false}},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(selectDSDOutputRate(c.offer, c.forced, c.source), c.plan) << c.what;
  }

  const auto planned = [](const RateOffer& offer) {
    return planRates(selectDSDOutputRate(offer, false, dsd64), offer);
  };
  EXPECT_EQ(planned({all, 16384, false}).deviceRate, 352800);
  const RatePlan platform = planned({from48, 16384});
  EXPECT_EQ(platform.deviceRate, 0) << "left alone";
  EXPECT_EQ(platform.targetRate, 0);
  EXPECT_EQ(
      platform.linesBefore,
      std::vector<std::string>{"⚠️ No native 44.1k rate on device (supported: 48000, 96000, "
                               "192000). DSD→PCM at 44100Hz, CoreAudio SRC to device rate."});
  const RatePlan ours = planned({from48, 16384, false});
  EXPECT_EQ(ours.deviceRate, 48000);
  EXPECT_EQ(ours.targetRate, 48000) << "nobody else converts";
}

TEST(PlaybackFacts, NothingIsBitPerfectThatIsNotProven) {
  PlaybackFacts perfect;
  perfect.sourceBitDepth = 24;
  perfect.decoder = DecoderInfo{"FLAC Decoder", "libFLAC", true, "FLAC"};
  perfect.deviceRateVerified = true;
  perfect.output.backend = "ALSA";
  perfect.output.deviceBits = 24;
  perfect.output.deviceRate = 96000;
  EXPECT_TRUE(judge(perfect).bitPerfect);
  EXPECT_EQ(judge(perfect).reason, "");

  struct Case {
    std::string reason;
    std::function<void(PlaybackFacts&)> change;
  };
  const Case cases[] = {
      {"nothing is playing", [](PlaybackFacts& f) { f = {}; }},
      {"lossy source", [](PlaybackFacts& f) { f.decoder->isLossless = false; }},
      {"DSD is converted to PCM", [](PlaybackFacts& f) { f.dsdRate = 2822400; }},
      {"resampled to 88200 Hz", [](PlaybackFacts& f) { f.resampledTo = 88200; }},
      {"25 bits do not fit 32-bit float", [](PlaybackFacts& f) { f.sourceBitDepth = 25; }},
      {"effects are on", [](PlaybackFacts& f) { f.effectsActive = true; }},
      {"volume below 100 %", [](PlaybackFacts& f) { f.softwareVolumeActive = true; }},
      {"device runs at 96000 Hz", [](PlaybackFacts& f) { f.deviceRateVerified = false; }},
      {"the system's volume is not at 100 %",
       [](PlaybackFacts& f) { f.output.volumeUnity = false; }},
      {"converted on the way to the device", [](PlaybackFacts& f) { f.output.converted = true; }},
      {"the device's format is not known", [](PlaybackFacts& f) { f.output.deviceBits = 0; }},
      {"only 16 bits reach the device", [](PlaybackFacts& f) { f.output.deviceBits = 16; }},
      {"other programs are mixed in", [](PlaybackFacts& f) { f.output.mixed = true; }},
  };
  for (const Case& c : cases) {
    PlaybackFacts facts = perfect;
    c.change(facts);
    EXPECT_FALSE(judge(facts).bitPerfect) << c.reason;
    EXPECT_EQ(judge(facts).reason, c.reason);
  }

  for (const bool isFloatFile : {false, true}) {
    PlaybackFacts wide = perfect;
    wide.sourceBitDepth = 32;
    wide.output.deviceBits = 32;
    if (isFloatFile) {
      wide.fileFormat = fileFormatOf(96000, 2, 32, true);
    } else {
      wide.isIntegerOutput = true;
    }
    EXPECT_TRUE(judge(wide).bitPerfect) << "32 bits fit a path of their kind";
    wide.output.deviceBits = 24;
    EXPECT_EQ(judge(wide).reason, "only 24 bits reach the device");
  }
}

}  // namespace
}  // namespace velorin
