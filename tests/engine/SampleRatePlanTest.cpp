// Pure decisions: device rate and resampling, the format in the ring, the verdict on the path.
#include "engine/rates/SampleRatePlan.h"

#include <gtest/gtest.h>

#include "engine/PlaybackFacts.h"
#include "engine/output/ClientFormat.h"

namespace velorin {
namespace {

using Strategy = SampleRateStrategy;

constexpr char kPlatformConverts[] =
    "ℹ️ Will play with HAL sample rate conversion (not bit-perfect)";

const std::vector<double> kUpTo192 = {44100, 48000, 88200, 96000, 176400, 192000};
const std::vector<double> kUpTo384 = {44100, 48000, 96000, 192000, 384000};

RateSettings native() {
  return {};
}
RateSettings powerOf2(int multiplier) {
  return {.strategy = Strategy::powerOf2, .multiplier = multiplier};
}
RateSettings maximum() {
  return {.strategy = Strategy::max};
}
RateSettings fixedAt(double rate) {
  return {.strategy = Strategy::fixed, .fixedRate = rate};
}
RateSettings forced(RateSettings settings) {
  settings.forceHighRate = true;
  return settings;
}

TEST(SampleRatePlan, EveryStrategyAndEdge) {
  struct Case {
    std::string what;
    RateSettings settings;
    RateOffer offer;
    double source;
    double deviceRate;
    double targetRate;
    std::vector<std::string> before = {};
    std::vector<std::string> after = {};
  };
  const Case cases[] = {
      {"native follows the source", native(), {kUpTo192, 16384}, 96000, 96000, 0},
      {"nobody else converts: the lowest rate that keeps the band",
       native(),
       {{192000, 48000, 96000}, 16384, false},
       44100,
       48000,
       48000,
       {},
       {"🔄 Upsampling: 44100Hz → 48000Hz (×1.1)"}},
      {"nobody else converts: the highest where none keeps it",
       native(),
       {{32000, 44100}, 16384, false},
       192001,
       44100,
       44100,
       {},
       {"🔄 Downsampling: 192001Hz → 44100Hz (×0.2)"}},
      {"nobody else converts: a rate lowered for the buffer",
       native(),
       {{96000, 192000}, 4096, false},
       192000,
       96000,
       96000,
       {"⚠️ Buffer 4096 frames too small for 192000Hz → using 96000Hz"},
       {"🔄 Downsampling: 192000Hz → 96000Hz (×0.5)"}},
      {"native takes half of what is not offered",
       native(),
       {{44100, 48000}, 16384},
       96000,
       48000,
       0,
       {"⚠️ Buffer 16384 frames too small for 96000Hz → using 48000Hz"}},
      {"native, nothing in the source's family",
       native(),
       {{48000}, 16384},
       44100,
       0,
       0,
       {kPlatformConverts}},
      {"native, device without a list", native(), {{}, 16384}, 44100, 0, 0, {kPlatformConverts}},
      {"a device that reports rates inexactly",
       native(),
       {{44099.4, 48000.6}, 4096},
       44100,
       44100,
       0},
      {"1 Hz off is offered", native(), {{44101}, 4096}, 44100, 44100, 0},
      {"more than 1 Hz off is not", native(), {{44101.5}, 4096}, 44100, 0, 0, {kPlatformConverts}},

      {"buffer of 40 ms exactly passes", native(), {kUpTo192, 7680}, 192000, 192000, 0},
      {"one frame less does not",
       native(),
       {kUpTo192, 7679},
       192000,
       96000,
       0,
       {"⚠️ Buffer 7679 frames too small for 192000Hz → using 96000Hz"}},
      {"384 kHz through 4096 frames ends at 96 kHz",
       native(),
       {kUpTo384, 4096},
       384000,
       96000,
       0,
       {"⚠️ Buffer 4096 frames too small for 384000Hz → using 96000Hz"}},
      {"unless forced", forced(native()), {kUpTo384, 4096}, 384000, 384000, 0},
      {"no rate has room for 40 ms", native(), {kUpTo192, 300}, 44100, 0, 0, {kPlatformConverts}},

      {"x8 not offered, x4 is",
       powerOf2(8),
       {kUpTo192, 16384},
       44100,
       176400,
       176400,
       {"🔄 Upsampling: 44100Hz → 176400Hz (×4.0)"}},
      {"halving a multiplier that is no power of two ends above 1",
       powerOf2(5),
       {kUpTo192, 16384},
       44100,
       88200,
       88200,
       {"🔄 Upsampling: 44100Hz → 88200Hz (×2.0)"}},
      {"no multiple offered, the source is", powerOf2(4), {{44100, 48000}, 4096}, 44100, 44100, 0},
      {"neither a multiple nor a part",
       powerOf2(2),
       {{48000}, 4096},
       44100,
       0,
       0,
       {kPlatformConverts}},
      {"only a part of the source",
       powerOf2(2),
       {{48000}, 4096},
       96000,
       48000,
       48000,
       {"🔄 Downsampling: 96000Hz → 48000Hz (×0.5)"}},
      {"buffer too small for the target, the half is another rate",
       powerOf2(4),
       {kUpTo192, 4096},
       44100,
       88200,
       88200,
       {"🔄 Upsampling: 44100Hz → 176400Hz (×4.0)",
        "⚠️ Buffer 4096 frames too small for 176400Hz → using 88200Hz"},
       {"🔄 Resampling adjusted: 44100Hz → 88200Hz (×2.0)"}},
      {"buffer too small for the target, the half is the source",
       powerOf2(2),
       {kUpTo192, 3000},
       44100,
       44100,
       0,
       {"🔄 Upsampling: 44100Hz → 88200Hz (×2.0)",
        "⚠️ Buffer 3000 frames too small for 88200Hz → using 44100Hz"},
       {"🔄 Resampling disabled: DAC rate matches source rate"}},
      {"the same, forced",
       forced(powerOf2(2)),
       {kUpTo192, 3000},
       44100,
       88200,
       88200,
       {"🔄 Upsampling: 44100Hz → 88200Hz (×2.0)"}},
      {"powerOf2, device without a list",
       powerOf2(2),
       {{}, 4096},
       44100,
       0,
       0,
       {kPlatformConverts}},

      {"max is not lowered for the buffer",
       maximum(),
       {kUpTo384, 512},
       48000,
       384000,
       384000,
       {"🔄 Upsampling: 48000Hz → 384000Hz (×8.0)"}},
      {"max at the top already", maximum(), {kUpTo192, 512}, 192000, 192000, 0},
      {"max, whatever the order",
       maximum(),
       {{96000, 48000}, 512},
       44100,
       96000,
       96000,
       {"🔄 Upsampling: 44100Hz → 96000Hz (×2.2)"}},
      {"max, device without a list", maximum(), {{}, 512}, 44100, 0, 0, {kPlatformConverts}},

      {"fixed, offered",
       fixedAt(96000),
       {kUpTo192, 512},
       44100,
       96000,
       96000,
       {"🔄 Upsampling: 44100Hz → 96000Hz (×2.2)"}},
      {"fixed, nearest",
       fixedAt(96000),
       {{44100, 48000}, 512},
       44100,
       48000,
       48000,
       {"🔄 Upsampling: 44100Hz → 48000Hz (×1.1)"}},
      {"fixed, equally near: the first",
       fixedAt(60000),
       {{72000, 48000}, 512},
       44100,
       72000,
       72000,
       {"🔄 Upsampling: 44100Hz → 72000Hz (×1.6)"}},
      {"fixed downward",
       fixedAt(44100),
       {{44100, 48000}, 512},
       192000,
       44100,
       44100,
       {"🔄 Downsampling: 192000Hz → 44100Hz (×0.2)"}},
      {"fixed at the source", fixedAt(44100), {kUpTo192, 512}, 44100, 44100, 0},
      {"fixed, never chosen", fixedAt(0), {kUpTo192, 512}, 48000, 48000, 0},
      {"fixed, device without a list", fixedAt(96000), {{}, 512}, 44100, 0, 0, {kPlatformConverts}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const RatePlan plan = planRates(c.settings, c.offer, c.source);
    EXPECT_EQ(plan.deviceRate, c.deviceRate);
    EXPECT_EQ(plan.targetRate, c.targetRate);
    EXPECT_EQ(plan.clientRate(c.source), c.targetRate > 0 ? c.targetRate : c.source);
    EXPECT_EQ(plan.linesBefore, c.before);
    EXPECT_EQ(plan.linesAfter, c.after);
  }
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

  PlaybackFacts integer = perfect;
  integer.isIntegerOutput = true;
  integer.sourceBitDepth = 32;
  integer.output.deviceBits = 32;
  EXPECT_TRUE(judge(integer).bitPerfect) << "32 bits fit an integer path";
}

}  // namespace
}  // namespace velorin
