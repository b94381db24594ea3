// Dither as it is measured: on the grid, an error whose mean and power know nothing of the signal,
// noise of the shape that the filter has.
#include "dsp/effects/DitherDSP.h"

#include <gtest/gtest.h>

#include <limits>

#include "dsp/EffectHarness.h"

namespace velorin {
namespace {

using test::Signal;
using Algorithm = DitherDSP::Algorithm;

constexpr double kRate = 48000;
constexpr Algorithm kAll[] = {Algorithm::tpdf, Algorithm::modifiedEWeighted, Algorithm::lipshitz,
                              Algorithm::fWeighted};

std::vector<float> tapsOf(Algorithm algorithm) {
  switch (algorithm) {
    case Algorithm::tpdf:
      return {};
    case Algorithm::modifiedEWeighted:
      return {1.623f, -0.982f, 0.411f, -0.239f};
    case Algorithm::lipshitz:
      return {2.033f, -2.165f, 1.959f, -1.590f, 0.6149f};
    case Algorithm::fWeighted:
      return {2.412f, -3.370f, 3.937f, -4.174f, 3.353f, -2.205f, 1.281f, -0.569f, 0.0847f};
  }
  return {};
}

struct Dither : DitherDSP {
  explicit Dither(Algorithm algorithm, int bits = 16) {
    setAlgorithm(algorithm);
    setTargetBitDepth(bits);
  }
};

// What was added, in steps of the word.
std::vector<double> errorOf(const Signal& out, const Signal& in, std::size_t channel, int bits) {
  std::vector<double> error(in[channel].size());
  for (std::size_t i = 0; i < error.size(); ++i) {
    error[i] = std::ldexp(static_cast<double>(out[channel][i]) - in[channel][i], bits - 1);
  }
  return error;
}

double meanOf(const std::vector<double>& values) {
  double sum = 0;
  for (const double value : values) sum += value;
  return sum / static_cast<double>(values.size());
}
double powerOf(const std::vector<double>& values) {
  double sum = 0;
  for (const double value : values) sum += value * value;
  return sum / static_cast<double>(values.size());
}

TEST(Dither, EverySampleIsAStepOfTheWord) {
  for (const Algorithm algorithm : kAll) {
    for (const int bits : {2, 8, 16, 20, 24}) {
      Signal in = test::noise(3, 2000);
      std::fill_n(in[1].begin(), 500, 0.0f);
      std::fill_n(in[2].begin(), 500, -1.0f);
      Dither dither(algorithm, bits);
      for (const auto& channel : test::run(dither, in, kRate, 700)) {
        for (const float sample : channel) {
          const float step = std::ldexp(sample, bits - 1);
          ASSERT_EQ(step, std::nearbyint(step)) << static_cast<int>(algorithm) << ", " << bits;
        }
      }
    }
  }
}

TEST(Dither, TriangularNoiseHidesTheSignalFromMeanAndPowerOfTheError) {
  constexpr std::size_t kFrames = 400000;
  for (const float offset : {0.0f, 0.13f, 0.25f, 0.5f, 100.77f}) {  // steps of DC
    Signal in(2, std::vector<float>(kFrames, offset / 32768));
    Dither dither(Algorithm::tpdf);
    const Signal out = test::run(dither, in, kRate, 4096);
    const auto left = errorOf(out, in, 0, 16);
    const auto right = errorOf(out, in, 1, 16);
    EXPECT_NEAR(meanOf(left), 0, 0.003) << offset;
    EXPECT_NEAR(powerOf(left), 0.25, 0.002) << offset;
    double product = 0;
    for (std::size_t i = 0; i < kFrames; ++i) product += left[i] * right[i];
    EXPECT_NEAR(product / kFrames, 0, 0.002) << "the channels have noise of their own";
  }
}

TEST(Dither, NoiseHasTheSpectrumOfItsFilter) {
  // Told by its transform, the autocorrelation: that of 1 - c[0] z^-1 - …, where white noise of a
  // quarter of a step squared goes in.
  const Signal in = test::sine(1, 512 * 512, 331, kRate, 0.1);
  for (const Algorithm algorithm : kAll) {
    std::vector<double> filter = {1};
    for (const float tap : tapsOf(algorithm)) filter.push_back(-tap);
    Dither dither(algorithm);
    const auto error = errorOf(test::run(dither, in, kRate), in, 0, 16);
    EXPECT_NEAR(meanOf(error), 0, 0.01);
    const double total = powerOf(filter) * static_cast<double>(filter.size());
    for (std::size_t lag = 0; lag < 12; ++lag) {
      double expected = 0;
      for (std::size_t k = lag; k < filter.size(); ++k) expected += filter[k] * filter[k - lag];
      double sum = 0;
      for (std::size_t i = lag; i < error.size(); ++i) sum += error[i] * error[i - lag];
      EXPECT_NEAR(sum / static_cast<double>(error.size()) / 0.25, expected, 0.02 * total)
          << static_cast<int>(algorithm) << ", lag " << lag;
    }
  }
}

TEST(Dither, HearsBlocksOfAnySizeAndChannelsUpToItsLimits) {
  for (const Algorithm algorithm : kAll) {
    const Signal in = test::noise(1, 70000);
    Dither whole(algorithm);
    const Signal expected = test::run(whole, in, kRate, 65536);
    for (const std::size_t block : test::kBlockSizes) {
      Dither dither(algorithm);
      EXPECT_TRUE(test::identical(test::run(dither, in, kRate, block), expected)) << block;
    }
    Dither beyond(algorithm);
    const Signal longer = test::noise(2, 65540);
    const Signal out = test::run(beyond, longer, kRate, 65540);
    for (std::size_t channel = 0; channel < 2; ++channel) {
      EXPECT_NE(out[channel][65535], longer[channel][65535]);
      EXPECT_EQ(out[channel][65536], longer[channel][65536]);
    }
    EXPECT_FALSE(test::passesDry(beyond, kRate, 32));
    EXPECT_EQ(test::passesDry(beyond, kRate, 33), algorithm != Algorithm::tpdf);
  }
}

}  // namespace
}  // namespace velorin
