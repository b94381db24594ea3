// Subsonic filter, record curve and loudness: their responses against the circuits, and when they
// leave audio alone.
#include <gtest/gtest.h>

#include "dsp/AnalogueFilter.h"
#include "dsp/EffectHarness.h"
#include "dsp/effects/LoudnessCompensationDSP.h"
#include "dsp/effects/RIAAVinylCurveDSP.h"
#include "dsp/effects/SubsonicFilterDSP.h"

namespace velorin {
namespace {

using test::analogueMagnitude;
using test::Signal;
using Type = EQBand::FilterType;

constexpr double kRate = 48000;

template <class Effect>
struct Ready : Effect {
  explicit Ready(double rate = kRate) {
    this->setEnabled(true);
    this->sampleRateChanged(rate);
  }
};
using Subsonic = Ready<SubsonicFilterDSP>;
using Curve = Ready<RIAAVinylCurveDSP>;
using Loudness = Ready<LoudnessCompensationDSP>;

TEST(SubsonicFilter, CutsBelowItsCornerAndAllOfDC) {
  for (const double rate : test::kRates) {
    for (const double cutoff : {5.0, 20.0, 50.0}) {
      Subsonic filter(rate);
      filter.setCutoff(cutoff);
      const EQBand circuit{.frequency = cutoff, .q = 1.4142 / 2, .filterType = Type::highPass};
      const auto expected = [&](double f) { return analogueMagnitude(circuit, f, rate); };
      EXPECT_LT(test::responseErrorDB(filter, rate, 8 / cutoff, expected), 1e-4) << cutoff;
    }
  }
  Subsonic filter;
  const Signal out = test::run(filter, Signal(2, std::vector<float>(96000, 0.5f)), kRate);
  EXPECT_FLOAT_EQ(out[0][0], out[1][0]);
  EXPECT_GT(out[0][0], 0.49f);
  EXPECT_LT(std::fabs(out[1].back()), 1e-9f);
}

TEST(RIAAVinylCurve, IsThreeShelvesAtTheCornersOfTheTimeConstants) {
  const EQBand shelves[] = {
      {50.05, 19.9, 0.707, Type::lowShelf},
      {500.5, -13.1, 0.707, Type::highShelf},
      {13332.919221835082 / (2 * std::numbers::pi), -13.7, 0.707, Type::highShelf}};
  for (const double rate : test::kRates) {
    Curve curve(rate);
    const auto expected = [&](double f) {
      double magnitude = 1;
      for (const EQBand& shelf : shelves) magnitude *= analogueMagnitude(shelf, f, rate);
      return magnitude;
    };
    EXPECT_LT(test::responseErrorDB(curve, rate, 0.5, expected), 1e-4) << rate;
    EXPECT_NEAR(20 * std::log10(expected(1)), 19.9, 0.1);
    EXPECT_NEAR(20 * std::log10(expected(20000)), -26.8, 0.2);
  }
}

TEST(LoudnessCompensation, BoostsBassAndTrebleBelowTheReference) {
  struct {
    double volume, reference, bass, treble;
    double factor;  ///< share of the boosts
  } const cases[] = {{0, 0.8, 12, 6, 1},
                     {0.4, 0.8, 12, 6, 0.5},
                     {0.6, 0.8, 20, 12, 0.25},
                     {0.1, 0.3, 9, 0, 2 / 3.}};
  for (const double rate : test::kRates) {
    for (const auto& each : cases) {
      Loudness loudness(rate);
      loudness.setVolume(each.volume);
      loudness.setReferenceLevel(each.reference);
      loudness.setMaxBassBoostDB(each.bass);
      loudness.setMaxTrebleBoostDB(each.treble);
      EXPECT_NEAR(loudness.boostFactor(), each.factor, 1e-6);
      const EQBand bass{100, each.bass * each.factor, 0.7, Type::lowShelf};
      const EQBand treble{10000, each.treble * each.factor, 0.7, Type::highShelf};
      const auto expected = [&](double f) {
        return analogueMagnitude(bass, f, rate) * analogueMagnitude(treble, f, rate);
      };
      EXPECT_LT(test::responseErrorDB(loudness, rate, 0.25, expected), 1e-4)
          << rate << ", " << each.volume;
    }
  }
}

TEST(LoudnessCompensation, ChangesNotOneBitAtTheReferenceAndAboveIt) {
  Loudness loudness;
  EXPECT_TRUE(test::passesDry(loudness, kRate)) << "at full volume";
  loudness.setVolume(0.8);
  EXPECT_TRUE(test::passesDry(loudness, kRate));
  loudness.setVolume(0.795);
  EXPECT_FALSE(test::passesDry(loudness, kRate)) << "however little it is";
  loudness.setReferenceLevel(0.5);
  EXPECT_TRUE(test::passesDry(loudness, kRate));
  EXPECT_EQ(loudness.boostFactor(), 0);
  loudness.setVolume(0);
  loudness.setReferenceLevel(0);
  EXPECT_TRUE(test::passesDry(loudness, kRate));
}

TEST(FixedFilters, RunOnEveryChannel) {
  Loudness loudness;
  loudness.setVolume(0.2);
  Subsonic subsonic;
  Curve curve;
  for (DSPEffect* effect : std::initializer_list<DSPEffect*>{&loudness, &subsonic, &curve}) {
    SCOPED_TRACE(effect->name());
    const Signal in = test::noise(2, 70000);
    effect->sampleRateChanged(kRate);  // from silence
    const Signal expected = test::run(*effect, in, kRate, 70000);
    // Alone, either channel sounds as it does in company; without the left one, the right does.
    effect->sampleRateChanged(kRate);
    EXPECT_TRUE(test::identical(test::run(*effect, {in[0]}, kRate, 4096), {expected[0]}));
    Signal rest = in;
    AudioBufferList list = test::listOf(rest, 0, 70000);
    list.buffers[0].data = nullptr;
    effect->sampleRateChanged(kRate);
    effect->process(list, 70000, kRate);
    EXPECT_EQ(rest[0], in[0]);
    EXPECT_EQ(rest[1], expected[1]);
  }
}

TEST(FixedFilters, WaitForTheirRate) {
  LoudnessCompensationDSP loudness;
  SubsonicFilterDSP subsonic;
  RIAAVinylCurveDSP curve;
  loudness.setVolume(0.2);  // before there is a rate
  subsonic.setCutoff(30);
  for (DSPEffect* effect : std::initializer_list<DSPEffect*>{&loudness, &subsonic, &curve}) {
    SCOPED_TRACE(effect->name());
    effect->setEnabled(true);
    EXPECT_TRUE(test::passesDry(*effect, kRate));
    for (const double none : {0.0, -1.0, std::nan(""), HUGE_VAL}) effect->sampleRateChanged(none);
    EXPECT_TRUE(test::passesDry(*effect, kRate));
    effect->sampleRateChanged(kRate);
    EXPECT_FALSE(test::passesDry(*effect, kRate));
    EXPECT_FALSE(test::passesDry(*effect, kRate + 1));
    effect->sampleRateChanged(0);
    EXPECT_FALSE(test::passesDry(*effect, kRate)) << "no rate leaves the filter";
    EXPECT_TRUE(test::passesDry(*effect, kRate + 1.5));
    EXPECT_TRUE(test::passesDry(*effect, kRate));
  }
  // Corners that the rate cannot hold are left out.
  loudness.setEnabled(true);
  loudness.sampleRateChanged(16000);
  const EQBand bass{100, 9, 0.7, Type::lowShelf};
  EXPECT_LT(test::responseErrorDB(loudness, 16000, 0.25,
                                  [&](double f) { return analogueMagnitude(bass, f, 16000); }),
            1e-4);
}

}  // namespace
}  // namespace velorin
