// The equalizer: its filters measured against the analogue circuits that they stand for, when it
// leaves audio alone.
#include "dsp/effects/EqualizerDSP.h"

#include <gtest/gtest.h>

#include <limits>

#include "dsp/AnalogueFilter.h"
#include "dsp/EffectHarness.h"

namespace velorin {
namespace {

using test::analogueMagnitude;
using test::impulse;
using test::noise;
using test::Signal;
using Type = EQBand::FilterType;

constexpr double kRate = 48000;

std::vector<EQBand> flatBut(std::size_t index, EQBand band) {
  auto bands = flatBands();
  bands[index] = band;
  return bands;
}

const EQBand kBump{.frequency = 1000, .gain = 6};

struct ReadyEqualizer : EqualizerDSP {
  explicit ReadyEqualizer(const std::vector<EQBand>& bands = flatBut(17, kBump),
                          std::size_t channels = 2, double rate = kRate) {
    setEnabled(true);
    configure(rate, channels);
    setBands(bands);
  }
};

bool passesDry(EqualizerDSP& effect, std::size_t channels = 2, double rate = kRate) {
  return test::passesDry(effect, rate, channels);
}

TEST(Equalizer, EveryFilterHasTheResponseOfItsCircuitAtEveryRate) {
  const EQBand bands[] = {
      {20, 12, 4.318, Type::peaking},   {20000, -12, 4.318, Type::peaking},
      {1000, -6, 0.1, Type::peaking},   {20, -12, 0.707, Type::lowShelf},
      {250, 12, 10, Type::lowShelf},    {20000, 12, 0.5, Type::highShelf},
      {2000, -12, 10, Type::highShelf}, {20, 12, 0.707, Type::highPass},
      {1000, 0, 10, Type::highPass},    {20000, 0, 4.318, Type::lowPass},
      {100, 0, 0.1, Type::lowPass},     {31.5, 0.01, 10, Type::peaking},
  };
  for (const double rate : test::kRates) {
    for (const EQBand& band : bands) {
      ReadyEqualizer equalizer(flatBut(5, band), 1, rate);
      // Until what rings is below what a float shows: a boosted peak rings with twice its Q, and
      // filters of low Q creep as long as others ring.
      const double seconds = 12 * std::max(band.q, 1 / band.q) / band.frequency;
      const auto frames = static_cast<std::size_t>(rate * seconds) + 1000;
      const Signal out = test::run(equalizer, impulse(1, frames), rate);
      for (const double f : {20.0, band.frequency / 2, band.frequency, band.frequency * 2, 997.0,
                             18000.0, rate * 0.45}) {
        if (f >= rate / 2) continue;
        const double expected = analogueMagnitude(band, f, rate);
        const double measured = std::abs(test::transformAt(out[0], f, rate));
        EXPECT_NEAR(measured, expected, 1e-5 * std::max(expected, 0.1))
            << label(band.filterType) << " of " << band.frequency << " Hz at " << f << " Hz, rate "
            << rate;
      }
    }
  }
}

TEST(Equalizer, AllBandsTogetherMultiplyOnEveryChannel) {
  auto bands = flatBands();
  for (std::size_t i = 0; i < bands.size(); ++i) bands[i].gain = i % 2 == 0 ? 9 : -7.5;
  ReadyEqualizer equalizer(bands, 8);
  Signal in(8, std::vector<float>(60000));
  for (std::size_t channel = 0; channel < in.size(); ++channel) {
    in[channel][0] = 1 / static_cast<float>(1 + channel);
  }
  const Signal out = test::run(equalizer, in, kRate);
  for (const double f : {25.0, 100.0, 440.0, 3150.0, 12500.0, 21000.0}) {
    double expected = 1;
    for (const EQBand& band : bands) expected *= analogueMagnitude(band, f, kRate);
    for (std::size_t channel = 0; channel < out.size(); ++channel) {
      const double measured = std::abs(test::transformAt(out[channel], f, kRate));
      EXPECT_NEAR(measured * static_cast<double>(1 + channel), expected, 1e-4 * expected) << f;
    }
  }
}

TEST(Equalizer, IsFlatUntilABandReachesAHundredthOfADecibel) {
  struct {
    EQBand band;
    bool isFlat;
  } const cases[] = {
      {{.frequency = 1000, .gain = 0.0099}, true},
      {{.frequency = 1000, .gain = -0.01}, false},
      {{.frequency = 1000, .filterType = Type::lowPass}, false},
  };
  Signal odd = noise(2, 64);
  odd[0][3] = -0.0f;
  odd[0][4] = std::numeric_limits<float>::quiet_NaN();
  odd[1][5] = std::numeric_limits<float>::denorm_min();
  odd[1][6] = -std::numeric_limits<float>::infinity();
  for (const auto& [band, isFlat] : cases) {
    ReadyEqualizer equalizer(flatBut(30, band));
    EXPECT_EQ(equalizer.isFlat(), isFlat) << band.gain;
    EXPECT_EQ(test::identical(odd, test::run(equalizer, odd, kRate)), isFlat) << band.gain;
  }
  ReadyEqualizer equalizer;
  equalizer.resetBands();
  EXPECT_TRUE(equalizer.isFlat());
  EXPECT_TRUE(passesDry(equalizer));
}

TEST(Equalizer, EditsAreHeldWithinTheLimits) {
  constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
  EqualizerDSP equalizer;
  equalizer.setBands(flatBut(3, {.frequency = 40, .gain = 20, .q = 0.01}));
  EXPECT_EQ(equalizer.bands()[3], (EQBand{40, 12, 0.1, Type::peaking}));
  equalizer.updateBand(3, -99, 99, std::nullopt);
  EXPECT_EQ(equalizer.bands()[3], (EQBand{40, -12, 10, Type::peaking}));
  equalizer.updateBand(3, kNaN, kNaN, Type::highPass);
  EXPECT_EQ(equalizer.bands()[3], (EQBand{40, 0, EQBand::kDefaultQ, Type::highPass}));
  const auto before = equalizer.bands();
  equalizer.updateBand(31, 5, 5, Type::lowPass);
  EXPECT_EQ(equalizer.bands(), before);
  equalizer.updateBand(9, -3, std::nullopt, std::nullopt);
  EXPECT_EQ(equalizer.peakGain(), 0);
  equalizer.updateBand(10, 2.5, std::nullopt, std::nullopt);
  EXPECT_EQ(equalizer.peakGain(), 2.5);
  equalizer.setBands(std::vector<EQBand>{{.gain = -4}, {.gain = -3}});
  EXPECT_EQ(equalizer.peakGain(), -3);
}

TEST(Equalizer, AnotherFormatPassesDryUntilItIsConfigured) {
  ReadyEqualizer equalizer;
  EXPECT_FALSE(passesDry(equalizer));
  EXPECT_FALSE(passesDry(equalizer, 2, kRate + 1)) << "within 1 Hz";
  EXPECT_TRUE(passesDry(equalizer, 2, kRate + 1.1));
  EXPECT_TRUE(passesDry(equalizer)) << "the old filters do not come back by themselves";
  equalizer.configure(kRate, 2);
  EXPECT_FALSE(passesDry(equalizer));
  EXPECT_TRUE(passesDry(equalizer, 3));
  equalizer.setBands(equalizer.bands());
  EXPECT_FALSE(passesDry(equalizer, 3)) << "an edit designs for what plays";
  equalizer.configure(0, 2);
  EXPECT_TRUE(passesDry(equalizer));

  EqualizerDSP early;  // bands before there is a format
  early.setEnabled(true);
  early.setBands(flatBut(17, kBump));
  EXPECT_TRUE(passesDry(early));
  early.configure(kRate, 2);
  EXPECT_FALSE(passesDry(early));
}

TEST(Equalizer, WhatItCannotProcessItLeavesWhole) {
  ReadyEqualizer equalizer;
  auto bands = flatBut(0, kBump);
  bands.pop_back();
  equalizer.setBands(bands);
  EXPECT_FALSE(equalizer.isFlat());
  EXPECT_TRUE(passesDry(equalizer)) << "30 bands are no equalizer";
  bands = flatBands();
  bands.push_back(kBump);
  equalizer.setBands(bands);
  EXPECT_FALSE(equalizer.isFlat());
  EXPECT_TRUE(passesDry(equalizer)) << "only 31 are read";
}

TEST(Equalizer, BandsWithoutAFilterAtTheRateAreLeftOutAndNamed) {
  auto bands = flatBut(17, kBump);
  bands[30] = {.frequency = 24000, .gain = 12};
  bands[29] = {.frequency = 0, .gain = 3, .filterType = Type::highPass};
  bands[28] = {.frequency = std::numeric_limits<double>::quiet_NaN(), .gain = 3};
  bands[27] = {.frequency = 1e-9, .gain = 12, .filterType = Type::lowShelf};
  bands[26] = {.frequency = 30000};  // inactive, unusable all the same
  bands[25].gain = 0.0099;           // usable, inactive: takes no section either
  EqualizerDSP unconfigured;
  unconfigured.setBands(bands);
  EXPECT_TRUE(unconfigured.unusableBands().empty());

  ReadyEqualizer equalizer(bands);
  EXPECT_EQ(equalizer.unusableBands(), (std::vector<int>{26, 27, 28, 29, 30}));
  ReadyEqualizer usableAlone;
  const Signal in = noise(2, 5000);
  EXPECT_TRUE(test::identical(test::run(equalizer, in, kRate), test::run(usableAlone, in, kRate)));
  equalizer.configure(96000, 2);
  EXPECT_EQ(equalizer.unusableBands(), (std::vector<int>{27, 28, 29}));
  equalizer.setBands(flatBut(30, {.frequency = 50000, .gain = 12}));
  EXPECT_FALSE(equalizer.isFlat());
  EXPECT_TRUE(passesDry(equalizer, 2, 96000));
}

}  // namespace
}  // namespace velorin
