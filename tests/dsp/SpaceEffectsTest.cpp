// Crossfeed, widener and spatial audio: against what they are defined as, sample by sample.
#include <gtest/gtest.h>

#include "dsp/EffectHarness.h"
#include "dsp/effects/CrossfeedDSP.h"
#include "dsp/effects/SpatialAudioDSP.h"
#include "dsp/effects/StereoWidenerDSP.h"

namespace velorin {
namespace {

using test::PlainSection;
using test::Signal;
using Algorithm = StereoWidenerDSP::Algorithm;

constexpr double kRate = 48000;

// The plain ring: what is written at a place is read at others, modulo its size.
class Ring {
 public:
  explicit Ring(std::size_t size) : _samples(size) {}
  void write(float sample) { _samples[_at] = sample; }
  float back(std::size_t samples) const {
    return _samples[(_at + _samples.size() * 64 - samples) % _samples.size()];
  }
  void advance() { _at = (_at + 1) % _samples.size(); }

 private:
  std::vector<float> _samples;
  std::size_t _at = 0;
};

// --- Crossfeed ---

struct Crossfeed : CrossfeedDSP {
  explicit Crossfeed(double rate = kRate, double delay = 0.00027, double level = 0.595,
                     double cutoff = 700) {
    setEnabled(true);
    formatChanged(rate);
    setDelayTime(delay);
    setCrossfeedLevel(level);
    setCutoffFrequency(cutoff);
  }
};

TEST(Crossfeed, DelaysToTheSampleAndItsFraction) {
  struct {
    double rate, seconds;
    std::size_t whole;
    double fraction;
  } const cases[] = {
      {44100, 0.0001, 4, 0.41},           {48000, 0.000125, 6, 0},     {384000, 0.0005, 192, 0},
      {44100, 0.00027, 11, 0.907},        {96000, 0.0003, 28, 0.8},    {44100, 1, 4095, 0},
      {48000, 4095.5 / 48000, 4095, 0.5}, {192000, 1 / 192000., 1, 0}, {48000, 0, 0, 0},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(testing::Message() << each.seconds << " s at " << each.rate);
    // What comes through, against the same without a delay: its low-pass is the same.
    Signal in = test::impulse(2, 6000);
    in[0][0] = 0;
    Crossfeed direct(each.rate, 0, 1, 12000);
    Crossfeed crossfeed(each.rate, each.seconds, 1, 12000);
    const auto plain = test::run(direct, in, each.rate)[0];
    const auto heard = test::run(crossfeed, in, each.rate)[0];
    for (std::size_t i = 0; i < heard.size(); ++i) {
      const auto plainAt = [&](std::size_t back) { return i < back ? 0 : plain[i - back]; };
      const double expected = (1 - each.fraction) * plainAt(each.whole) +
                              (each.fraction > 0 ? each.fraction * plainAt(each.whole + 1) : 0);
      ASSERT_NEAR(heard[i], expected, 1e-4) << i;
    }
  }
}

TEST(Crossfeed, GivesTheOtherSideDarkerAndQuieter) {
  for (const double f : {100.0, 700.0, 5000.0}) {
    Crossfeed crossfeed;
    Signal in = test::sine(2, 48000, f, kRate);
    std::ranges::fill(in[1], 0.0f);
    const Signal out = test::run(crossfeed, in, kRate);
    const auto late = [&](std::size_t side) { return std::span(out[side]).subspan(24000); };
    const double through = std::abs(biquad::response(biquad::lowPass(kRate, 700, 0.5), kRate, f));
    EXPECT_NEAR(test::amplitudeAt(late(0), f, kRate), 0.5 / 1.595, 1e-5) << f;
    EXPECT_NEAR(test::amplitudeAt(late(1), f, kRate), 0.5 * through * 0.595 / 1.595, 2e-4) << f;
  }
}

TEST(Crossfeed, KeepsWhatBothSidesShare) {
  Crossfeed crossfeed;
  const Signal out = test::run(crossfeed, Signal(2, std::vector<float>(48000, 0.5f)), kRate);
  EXPECT_FLOAT_EQ(out[0].back(), 0.5f);
  EXPECT_FLOAT_EQ(out[1].back(), 0.5f);
  crossfeed.setCrossfeedLevel(0);
  EXPECT_TRUE(test::passesDry(crossfeed, kRate));
}

TEST(Crossfeed, StartsFromSilenceWhenItReturns) {
  Crossfeed crossfeed;
  const Signal silence(2, std::vector<float>(512));
  const auto tail = [&] { return test::run(crossfeed, silence, kRate); };
  const auto play = [&] { test::run(crossfeed, test::noise(2, 512), kRate); };
  play();
  EXPECT_FALSE(test::identical(tail(), silence)) << "it does have a tail";
  play();
  crossfeed.setEnabled(false);
  crossfeed.setEnabled(true);
  EXPECT_TRUE(test::identical(tail(), silence));
  // A new filter goes on where the old one was.
  play();
  crossfeed.setCutoffFrequency(701);
  EXPECT_FALSE(test::identical(tail(), silence));
}

// --- Stereo widener ---

struct Widener : StereoWidenerDSP {
  explicit Widener(Algorithm algorithm, double width, double rate = kRate) {
    setEnabled(true);
    setAlgorithm(algorithm);
    setWidth(width);
    sampleRateChanged(rate);
  }
};

TEST(StereoWidener, ScalesWhatTheSidesDoNotShare) {
  const Signal in = test::noise(3, 5000);
  for (const float width : {0.0f, 0.4f, 1.7f, 2.0f}) {
    for (const Algorithm algorithm : {Algorithm::midSide, Algorithm::frequencyDependent}) {
      Widener whole(algorithm, width);
      const Signal out = test::run(whole, in, kRate, 8192);
      for (std::size_t i = 0; i < in[0].size(); ++i) {
        ASSERT_NEAR(out[0][i] + out[1][i], in[0][i] + in[1][i], 1e-6);
        if (algorithm == Algorithm::frequencyDependent) continue;
        ASSERT_NEAR(out[0][i] - out[1][i], width * (in[0][i] - in[1][i]), 1e-6);
      }
      EXPECT_EQ(out[2], in[2]);
      for (const std::size_t block : {1u, 7u, 64u, 512u, 4096u}) {
        Widener widener(algorithm, width);
        EXPECT_TRUE(test::identical(test::run(widener, in, kRate, block), out)) << width;
      }
    }
  }
}

TEST(StereoWidener, LeavesTheBassWhereItIs) {
  for (const double rate : test::kRates) {
    for (const double width : {0.0, 2.0}) {
      for (const auto& [f, side, tolerance] :
           {std::tuple{50.0, 1.0, 0.15}, {8000.0, width, 0.01}}) {
        Widener widener(Algorithm::frequencyDependent, width, rate);
        Signal in = test::sine(2, static_cast<std::size_t>(rate), f, rate);
        for (float& sample : in[1]) sample = -sample;  // all of it to the sides
        const Signal out = test::run(widener, in, rate);
        const std::span late(out[0].data() + out[0].size() / 2, out[0].size() / 2);
        EXPECT_NEAR(test::amplitudeAt(late, f, rate) / 0.5, side, tolerance) << f << " at " << rate;
      }
    }
  }
}

TEST(StereoWidener, DelaysOneSideToTheFractionOfASample) {
  // At 384 kHz 0.8 ms are longer than the ring of 256 samples.
  for (const double rate : {44100.0, 48000.0, 192000.0, 384000.0}) {
    for (const float width : {0.0f, 0.3f, 1.001f, 1.63f, 2.0f}) {
      const float d = std::fabs(width - 1) * static_cast<float>(rate * 0.0008);
      const auto whole = static_cast<std::size_t>(d);
      const float f = d - static_cast<float>(whole);
      const std::size_t side = width > 1 ? 1 : 0;
      const Signal in = test::noise(2, 70000);
      Signal expected = in;
      Ring ring(256);
      for (float& sample : expected[side]) {
        ring.write(sample);
        sample = (1 - f) * ring.back(whole) + f * ring.back(whole + 1);
        ring.advance();
      }
      for (const std::size_t block : test::kBlockSizes) {
        Widener widener(Algorithm::haas, width, rate);
        EXPECT_TRUE(test::identical(test::run(widener, in, rate, block), expected))
            << width << " at " << rate << ", " << block;
      }
    }
  }
}

TEST(StereoWidener, KnowsWhenToLeaveAudioAlone) {
  for (const Algorithm algorithm :
       {Algorithm::midSide, Algorithm::haas, Algorithm::frequencyDependent}) {
    Widener widener(algorithm, 1);
    EXPECT_TRUE(test::passesDry(widener, kRate));
    widener.setWidth(1.5);
    EXPECT_FALSE(test::passesDry(widener, kRate));
    EXPECT_FALSE(test::passesDry(widener, kRate, 2, 8192));
    EXPECT_EQ(test::passesDry(widener, kRate, 2, 8193), algorithm != Algorithm::haas);
    EXPECT_TRUE(test::passesDry(widener, kRate, 1));
    EXPECT_TRUE(test::passesDry(widener, kRate + 0.5)) << "another rate, to the half hertz";
    EXPECT_TRUE(test::passesDry(widener, kRate));
    widener.sampleRateChanged(kRate);
    EXPECT_FALSE(test::passesDry(widener, kRate));

    // Off and on: from silence.
    test::run(widener, test::noise(2, 512), kRate);
    widener.setEnabled(false);
    widener.setEnabled(true);
    const Signal silence(2, std::vector<float>(512));
    EXPECT_TRUE(test::identical(test::run(widener, silence, kRate), silence));
  }
}

// --- Spatial audio ---

struct Spatial : SpatialAudioDSP {
  Spatial(double azimuth, double room, double distance, double rate = kRate) {
    setEnabled(true);
    setAzimuth(azimuth);
    setRoomSize(room);
    setDistance(distance);
    sampleRateChanged(rate);
  }
};

// As it is defined, sample by sample, in the settings' own precision.
Signal placed(const Signal& in, float azimuth, float room, float distance, double rate) {
  Signal out = in;
  const double itd = rate * (std::sin(azimuth * std::numbers::pi / 180) * 0.00065);
  const float near = 1 / std::max(distance, 0.5f);
  for (std::size_t side = 0; side < 2; ++side) {
    const bool isFar = side == 0 ? azimuth > 0 : azimuth < 0;
    const double d = std::max(side == 0 ? itd : -itd, 0.0);
    const auto whole = static_cast<std::size_t>(d);
    const auto f = static_cast<float>(d - static_cast<double>(whole));
    const float gain = isFar ? 1 + (std::fabs(azimuth) / -180) * 0.5f : 1;
    const double corner = std::max(500.0, 18000 - std::fabs(azimuth) / 180.0 * 16000);
    PlainSection shadow(biquad::lowPass(rate, corner, 0.707));
    Ring ring(1024);
    for (float& sample : out[side]) {
      ring.write(sample);
      const float delayed = (1 - f) * ring.back(whole) + f * ring.back(whole + 1);
      sample = near * (gain * delayed);
      if (isFar && std::fabs(azimuth) > 5) sample = static_cast<float>(shadow.next(sample));
      ring.advance();
    }
  }
  if (!(room > 0.01f)) return out;
  Ring rings[2] = {Ring(4096), Ring(4096)};
  const auto t1 = static_cast<std::size_t>(rate * (room * 0.015));
  const auto t2 = static_cast<std::size_t>(rate * (room * 0.027));
  for (std::size_t i = 0; i < out[0].size(); ++i) {
    for (std::size_t side = 0; side < 2; ++side) rings[side].write(out[side][i]);
    out[0][i] += room * 0.25f * rings[1].back(t2);
    out[1][i] += room * 0.25f * rings[0].back(t1);
    for (Ring& ring : rings) ring.advance();
  }
  return out;
}

TEST(SpatialAudio, IsWhatItIsDefinedAs) {
  const Signal in = test::noise(2, 9000);
  for (const double rate : test::kRates) {
    for (const float azimuth : {0.0f, 3.0f, -4.9f, 30.0f, 90.0f, -90.0f, 180.0f, -133.0f}) {
      for (const float room : {0.0f, 0.01f, 0.3f, 1.0f}) {
        // The nearest that counts is half a metre.
        const float distance = room > 0.1f ? 2.5f : 0.3f;
        Spatial spatial(azimuth, room, distance, rate);
        EXPECT_TRUE(test::identical(test::run(spatial, in, rate, 700),
                                    placed(in, azimuth, room, distance, rate)))
            << azimuth << " degrees, room " << room << ", rate " << rate;
      }
    }
  }
}

TEST(SpatialAudio, WaitsForItsRate) {
  Spatial spatial(-70, 0.5, 1);
  EXPECT_TRUE(test::passesDry(spatial, kRate, 1));
  EXPECT_TRUE(test::passesDry(spatial, 44100));
  EXPECT_TRUE(test::passesDry(spatial, kRate));
  spatial.setAzimuth(10);
  EXPECT_FALSE(test::passesDry(spatial, kRate));
  SpatialAudioDSP untold;
  EXPECT_TRUE(test::passesDry(untold, kRate));
}

}  // namespace
}  // namespace velorin
