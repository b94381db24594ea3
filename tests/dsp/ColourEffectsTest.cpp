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

TEST(TubeWarmth, GoesOnBehindAMissingChannelAndUpToItsLimit) {
  TubeWarmthDSP tube;
  const Signal in = test::noise(3, 65540);
  Signal out = in;
  AudioBufferList list = test::listOf(out, 0, 65540);
  list.buffers[1].data = nullptr;
  tube.process(list, 65540, kRate);
  EXPECT_EQ(out[1], in[1]);
  for (const std::size_t channel : {0u, 2u}) {
    EXPECT_NE(out[channel][65535], in[channel][65535]);
    EXPECT_EQ(out[channel][65536], in[channel][65536]);
  }
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

// As it is defined, step by step.
class Record {
 public:
  std::vector<float> noise(std::size_t n, float level, float crackle) {
    std::vector<float> samples(n);
    for (float& sample : samples) {
      sample = static_cast<float>(static_cast<std::int32_t>(draw())) * 0x1p-32f;
    }
    for (float& sample : samples) {
      sample = static_cast<float>(_lowPass.next(sample)) * (level * 0.02f);
    }
    for (float& sample : samples) {
      float spike = 0;
      if (static_cast<float>(draw()) * 0x1p-32f < crackle * 0.003f) {
        const std::uint32_t state = draw();
        spike = static_cast<float>(state) * 0x1p-32f * 0.05f + 0.01f;
        if (state % 2 == 1) spike = -spike;
        ++spikes;
        largest = std::max(largest, std::fabs(spike));
        smallest = std::min(smallest, std::fabs(spike));
      }
      sample += spike;
    }
    return samples;
  }

  int spikes = 0;
  float largest = 0;
  float smallest = 1;

 private:
  std::uint32_t draw() { return _state = _state * 1664525u + 1013904223u; }

  std::uint32_t _state = 0xDEADBEEF;
  test::PlainSection _lowPass{biquad::lowPass(kRate, 4000, 0.5)};
};

TEST(VinylSimulator, AddsTheSameNoiseAndCrackleToEveryChannel) {
  for (const auto& [level, crackle] : {std::pair{0.15f, 0.3f}, {1.0f, 1.0f}, {0.0f, 1.0f}}) {
    for (const std::size_t block : {100u, 512u, 4096u, 65536u}) {
      Vinyl vinyl(level, crackle, 0);
      Record record;
      const Signal in = test::noise(3, 3 * block);
      Signal expected = in;
      for (std::size_t from = 0; from < in[0].size(); from += block) {
        const std::vector<float> noise = record.noise(block, level, crackle);
        for (auto& channel : expected) {
          for (std::size_t i = 0; i < block; ++i) channel[from + i] += noise[i];
        }
      }
      EXPECT_TRUE(test::identical(test::run(vinyl, in, kRate, block), expected)) << block;
      if (block < 65536) continue;
      const double rate = static_cast<double>(record.spikes) / static_cast<double>(in[0].size());
      EXPECT_NEAR(rate, 0.003 * crackle, 0.0003);
      EXPECT_GE(record.smallest, 0.01f);
      EXPECT_LE(record.largest, 0.0601f);
    }
  }
  // No crackle, no spikes: nothing but the noise below 4 kHz.
  Vinyl hiss(1, 0, 0);
  const Signal out = test::run(hiss, Signal(1, std::vector<float>(65536)), kRate);
  EXPECT_LT(*std::ranges::max_element(out[0]), 0.01f);
  EXPECT_GT(*std::ranges::max_element(out[0]), 0.002f);
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
