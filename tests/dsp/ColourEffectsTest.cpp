// The tube's curve, and the record's noise, crackle and roll-off.
#include <gtest/gtest.h>

#include "dsp/AnalogueFilter.h"
#include "dsp/EffectHarness.h"
#include "dsp/effects/TubeWarmthDSP.h"
#include "dsp/effects/VinylSimulatorDSP.h"

namespace velorin {
namespace {

using test::Signal;

constexpr double kRate = 48000;

TEST(TubeWarmth, SaturatesBesideTheDrySignal) {
  TubeWarmthDSP tube;
  struct {
    double drive, mix, in;
  } const cases[] = {
      {0.3, 0.5, 0.7}, {0, 1, 0.5},      {0, 1, -2},   {1, 1, 1},       {1, 1, -1},
      {1, 0.25, 0.9},  {0.6, 0.8, -0.3}, {1, 1, 1e-6}, {0.5, 0.5, 100},
  };
  for (const auto& each : cases) {
    tube.setDrive(each.drive);
    tube.setMix(each.mix);
    const Signal out =
        test::run(tube, Signal(3, std::vector<float>(9, static_cast<float>(each.in))), kRate);
    const double g = 1 + 4 * static_cast<double>(tube.drive());
    const double in = static_cast<float>(each.in);
    const double expected =
        in * (1 - static_cast<double>(tube.mix())) + std::tanh(in * g) / g * tube.mix();
    for (const auto& channel : out) {
      EXPECT_NEAR(channel[8], expected, 4e-7 * std::fabs(in)) << each.drive << ", " << each.in;
    }
  }
  tube.setDrive(1);
  tube.setMix(1);
  EXPECT_NEAR(test::run(tube, Signal(1, {1.0f}), kRate)[0][0], 0.19998, 1e-5);
  EXPECT_FALSE(test::passesDry(tube, kRate));
  tube.setMix(0);
  EXPECT_TRUE(test::passesDry(tube, kRate));
}

struct Vinyl : VinylSimulatorDSP {
  Vinyl(double noise, double crackle, double warmth, double rate = kRate) {
    setNoiseLevel(noise);
    setCrackleRate(crackle);
    setWarmth(warmth);
    sampleRateChanged(rate);
  }
};

TEST(VinylSimulator, RollsOffAsItsCircuitDoes) {
  for (const double rate : test::kRates) {
    for (const double warmth : {0.02, 0.5, 1.0}) {
      Vinyl vinyl(0, 0, warmth, rate);
      const EQBand circuit{.frequency = 20000 * std::pow(0.15, static_cast<double>(vinyl.warmth())),
                           .q = 0.707,
                           .filterType = EQBand::FilterType::lowPass};
      EXPECT_LT(test::responseErrorDB(
                    vinyl, rate, 0.02,
                    [&](double f) { return test::analogueMagnitude(circuit, f, rate); }),
                0.01)
          << rate << ", " << warmth;
    }
  }
  for (const double warmth : {0.0, 0.01}) {
    Vinyl vinyl(0, 0, warmth);
    EXPECT_TRUE(test::passesDry(vinyl, kRate)) << warmth;
  }
}

TEST(VinylSimulator, AddsTheSameNoiseAndCrackleToEveryChannel) {
  for (const auto& [level, crackle] : {std::pair{0.0f, 0.3f}, {0.0f, 1.0f}, {1.0f, 0.0f}}) {
    Vinyl vinyl(level, crackle, 0);
    const Signal out = test::run(vinyl, Signal(3, std::vector<float>(200'000)), kRate);
    EXPECT_TRUE(out[0] == out[1] && out[0] == out[2]);
    int spikes = 0;
    float largest = 0;
    for (const float sample : out[0]) {
      largest = std::max(largest, std::fabs(sample));
      if (std::fabs(sample) < 0.01f) continue;
      ++spikes;
      EXPECT_LE(std::fabs(sample), 0.0601f);
    }
    EXPECT_NEAR(spikes / 200'000.0, 0.003 * crackle, 0.0003);
    if (crackle > 0) continue;
    // Nothing but the noise below 4 kHz, a fiftieth of full scale at most.
    EXPECT_GT(largest, 0.002f);
    double power = 0;
    double steps = 0;
    for (std::size_t i = 1; i < out[0].size(); ++i) {
      power += std::pow(out[0][i], 2);
      steps += std::pow(out[0][i] - out[0][i - 1], 2);
    }
    EXPECT_LT(steps, 0.5 * power) << "white noise has twice its power";
  }
}

TEST(VinylSimulator, IsDryUntilItIsToldTheRateAndBeyondItsLimit) {
  VinylSimulatorDSP untold;
  EXPECT_TRUE(test::passesDry(untold, kRate));
  Vinyl vinyl(1, 1, 0.5);
  EXPECT_FALSE(test::passesDry(vinyl, kRate + 1)) << "within 1 Hz";
  EXPECT_TRUE(test::passesDry(vinyl, 44100));
  EXPECT_TRUE(test::passesDry(vinyl, kRate)) << "until it is told again";
  vinyl.setWarmth(0.6);
  EXPECT_FALSE(test::passesDry(vinyl, kRate));
  const Signal in = test::noise(2, 65540);
  const Signal out = test::run(vinyl, in, kRate, 65540);
  EXPECT_NE(out[1][65535], in[1][65535]);
  EXPECT_EQ(out[1][65536], in[1][65536]);
}

}  // namespace
}  // namespace velorin
