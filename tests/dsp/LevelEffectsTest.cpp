// Gains and routes: what is multiplied by what, to the bit; headroom, clipping, ReplayGain's
// choice.
#include <gtest/gtest.h>

#include <limits>

#include "dsp/EffectHarness.h"
#include "dsp/effects/ChannelEffects.h"
#include "dsp/effects/HeadroomDSP.h"
#include "dsp/effects/PreAmpDSP.h"
#include "dsp/effects/ReplayGainDSP.h"

namespace velorin {
namespace {

using test::Signal;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

// Three channels of what is easily changed unawares.
Signal delicate() {
  Signal signal = test::noise(3, 100);
  for (auto& channel : signal) {
    channel[0] = -0.0f;
    channel[1] = std::numeric_limits<float>::denorm_min();
    channel[2] = std::numeric_limits<float>::max() / 4;
    channel[3] = std::numeric_limits<float>::quiet_NaN();
  }
  return signal;
}

Signal scaled(Signal signal, const std::vector<float>& factors) {
  for (std::size_t i = 0; i < signal.size(); ++i) {
    for (float& sample : signal[i]) sample *= factors[i];
  }
  return signal;
}

TEST(LevelEffects, MultiplyByTheStatedFactor) {
  PreAmpDSP preAmp;
  ReplayGainDSP replayGain;
  BalanceDSP balance;
  const auto gain = [&](double dB) { preAmp.setGain(dB); };
  const auto track = [&](double dB, double peak) { replayGain.setTrackGain(dB, peak); };
  struct {
    const char* what;
    DSPEffect& effect;
    std::function<void()> set;
    std::vector<float> factors;  ///< by channel; none where not one bit may change
  } const cases[] = {
      {"+6 dB", preAmp, [&] { gain(6); }, {1.9952623f, 1.9952623f, 1.9952623f}},
      {"-12 dB", preAmp, [&] { gain(-12); }, {0.25118864f, 0.25118864f, 0.25118864f}},
      {"0 dB", preAmp, [&] { gain(0); }, {}},
      {"NaN dB", preAmp, [&] { gain(kNaN); }, {}},
      {"too much", preAmp, [&] { gain(1e300); }, {1e5f, 1e5f, 1e5f}},
      {"too little", preAmp, [&] { gain(-kInfinity); }, {1e-5f, 1e-5f, 1e-5f}},

      {"no track", replayGain, [] {}, {}},
      {"0 dB, hot peak", replayGain, [&] { track(0, 1.5); }, {}},
      {"capped by the peak", replayGain, [&] { track(6, 0.8); }, {1.25f, 1.25f, 1.25f}},
      {"below the cap", replayGain, [&] { track(-6, 1.5); }, {0.5011872f, 0.5011872f, 0.5011872f}},
      {"a cut that is capped", replayGain, [&] { track(-6, 3); }, {1 / 3.f, 1 / 3.f, 1 / 3.f}},
      {"unknown peak", replayGain, [&] { track(6, 0); }, {1.9952623f, 1.9952623f, 1.9952623f}},
      {"no peak", replayGain, [&] { track(6, kInfinity); }, {1.9952623f, 1.9952623f, 1.9952623f}},
      {"no gain", replayGain, [&] { track(kNaN, 0.5); }, {}},
      {"cleared", replayGain, [&] { track(6, 0.5), replayGain.clearTrackGain(); }, {}},

      {"centre", balance, [&] { balance.setBalance(0); }, {}},
      {"to the right", balance, [&] { balance.setBalance(0.25); }, {0.75f, 1, 1}},
      {"to the left", balance, [&] { balance.setBalance(-0.25); }, {1, 0.75f, 1}},
      {"right", balance, [&] { balance.setBalance(1); }, {0, 1, 1}},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.what);
    each.set();
    const Signal in = delicate();
    const Signal out = test::run(each.effect, in, 48000, 64);
    if (each.factors.empty()) {
      EXPECT_TRUE(test::identical(out, in));
      continue;
    }
    const Signal expected = scaled(in, each.factors);
    for (std::size_t channel = 0; channel < in.size(); ++channel) {
      EXPECT_TRUE(std::isnan(out[channel][3]));
      for (std::size_t i = 0; i < in[channel].size(); ++i) {
        if (i == 3) continue;
        EXPECT_FLOAT_EQ(out[channel][i], expected[channel][i]) << channel << ", " << i;
      }
    }
  }
}

TEST(ChannelEffects, RouteTheFirstTwoChannels) {
  ChannelSwapDSP swap;
  PhaseInvertDSP phase;
  MonoMixDSP mono;
  const auto negated = [](std::vector<float> samples) {
    for (float& sample : samples) sample = -sample;
    return samples;
  };
  const Signal in = test::noise(3, 100);
  EXPECT_TRUE(test::identical(test::run(swap, in, 48000, 64), {in[1], in[0], in[2]}));
  EXPECT_TRUE(test::identical(test::run(phase, in, 48000, 64), {negated(in[0]), in[1], in[2]}));
  phase.setChannel(PhaseInvertDSP::Channel::right);
  EXPECT_TRUE(test::identical(test::run(phase, in, 48000, 64), {in[0], negated(in[1]), in[2]}));
  phase.setChannel(PhaseInvertDSP::Channel::both);
  EXPECT_TRUE(
      test::identical(test::run(phase, in, 48000, 64), {negated(in[0]), negated(in[1]), in[2]}));
  std::vector<float> mean(100);
  for (std::size_t i = 0; i < 100; ++i) mean[i] = (in[0][i] + in[1][i]) * 0.5f;
  EXPECT_TRUE(test::identical(test::run(mono, in, 48000, 64), {mean, mean, in[2]}));

  // One channel: nothing to swap or to mix, and no right one to invert.
  const Signal one = test::noise(1, 100);
  phase.setChannel(PhaseInvertDSP::Channel::right);
  for (DSPEffect* effect : std::initializer_list<DSPEffect*>{&swap, &mono, &phase}) {
    EXPECT_TRUE(test::identical(test::run(*effect, one, 48000), one)) << effect->name();
  }
}

TEST(ReplayGain, TagsComeBeforeTheScanAndTheAlbumBeforeTheTrack) {
  using Value = std::optional<double>;
  struct {
    const char* what;
    Value trackGain, trackPeak, albumGain, albumPeak, loudness, truePeak;
    TrackGain ofTrack, ofAlbum;
  } const cases[] = {
      {"nothing", {}, {}, {}, {}, {}, {}, {0, 0}, {0, 0}},
      {"all", -3, 0.5, -7, 0.9, -10, 0, {-3, 0.5}, {-7, 0.9}},
      {"a track's tags alone", -3, 0.5, {}, {}, -10, 0, {-3, 0.5}, {-3, 0.5}},
      {"an album's tags alone", {}, {}, -7, 0.9, {}, {}, {0, 0}, {-7, 0.9}},
      {"the scan alone", {}, {}, {}, {}, -14.5, -6.0206, {-3.5, 0.5}, {-3.5, 0.5}},
      {"gain of the tags, peak of the scan", 2, {}, {}, {}, -30, 6.0206, {2, 2}, {2, 2}},
      {"tags that are no numbers", kNaN, kInfinity, -kInfinity, kNaN, -20, {}, {2, 0}, {2, 0}},
      {"silence", {}, {}, {}, {}, -kInfinity, -kInfinity, {0, 0}, {0, 0}},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.what);
    Track track;
    track.replayGainTrackGain = each.trackGain;
    track.replayGainTrackPeak = each.trackPeak;
    track.replayGainAlbumGain = each.albumGain;
    track.replayGainAlbumPeak = each.albumPeak;
    track.scannedLoudness = each.loudness;
    track.scannedTruePeak = each.truePeak;
    const TrackGain ofTrack = trackGain(track, ReplayGainDSP::Mode::track);
    const TrackGain ofAlbum = trackGain(track, ReplayGainDSP::Mode::album);
    EXPECT_DOUBLE_EQ(ofTrack.gainDB, each.ofTrack.gainDB);
    EXPECT_NEAR(ofTrack.peak, each.ofTrack.peak, 1e-5);
    EXPECT_DOUBLE_EQ(ofAlbum.gainDB, each.ofAlbum.gainDB);
    EXPECT_NEAR(ofAlbum.peak, each.ofAlbum.peak, 1e-5);
  }
}

TEST(Headroom, OnlyTakesAway) {
  ClippingDetector detector;
  HeadroomDSP headroom(detector);
  const auto factorAt = [&](double dB) {
    headroom.setHeadroom(dB);
    Signal signal(2, std::vector<float>(3, 1.0f));
    AudioBufferList list = test::listOf(signal, 0, 3);
    headroom.process(list, 3);
    EXPECT_EQ(signal[0], signal[1]);
    return signal[1][2];
  };
  EXPECT_FLOAT_EQ(factorAt(6), 0.5011872f);
  EXPECT_EQ(headroom.headroomDB(), 6);
  EXPECT_EQ(factorAt(-6), 1);
  EXPECT_EQ(factorAt(kNaN), 1);
  EXPECT_EQ(factorAt(0.0008), 1) << "a factor of 0.9999 and more is none";
  EXPECT_LT(factorAt(0.001), 1);
  EXPECT_FLOAT_EQ(factorAt(kInfinity), 1e-5f);
  headroom.reset();
  EXPECT_EQ(headroom.headroomDB(), 0);

  Signal hot(1, {2.0f});
  AudioBufferList list = test::listOf(hot, 0, 1);
  detector.process(list, 1);
  EXPECT_TRUE(detector.isClipping());
  headroom.setHeadroom(3);
  EXPECT_FALSE(detector.isClipping()) << "another headroom, another count";
  EXPECT_EQ(detector.clipCount(), 0u);
}

TEST(ClippingDetector, LatchesForFiftyBlocks) {
  ClippingDetector detector;
  const auto hear = [&](std::vector<float> peaks) {
    Signal signal;
    for (const float peak : peaks) signal.push_back({0.1f, -peak, 0.0f});
    const AudioBufferList list = test::listOf(signal, 0, 3);
    detector.process(list, 3);
    return detector.isClipping();
  };
  EXPECT_FALSE(hear({1.0f, 0.5f})) << "full scale is no clip";
  EXPECT_EQ(detector.peakL(), 1.0f);
  EXPECT_EQ(detector.peakR(), 0.5f);
  EXPECT_TRUE(hear({0.25f, 0.5f, 1.0000001f})) << "a further channel counts";
  EXPECT_EQ(detector.peakL(), 0.25f);
  for (int block = 1; block <= 50; ++block) EXPECT_TRUE(hear({0.1f})) << block;
  EXPECT_FALSE(hear({0.1f})) << "the 51st";
  EXPECT_EQ(detector.peakR(), 0.5f) << "of the last block that had a right channel";
  EXPECT_TRUE(hear({std::numeric_limits<float>::infinity()}));
  EXPECT_EQ(detector.clipCount(), 2u);
  const AudioBufferList none;
  detector.process(none, 0);
  EXPECT_TRUE(detector.isClipping());
  detector.reset();
  EXPECT_FALSE(detector.isClipping());
}

}  // namespace
}  // namespace velorin
