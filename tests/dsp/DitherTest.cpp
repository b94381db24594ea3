// Dither as it is measured: on the grid, an error whose mean and power know nothing of the signal,
// noise of the shape that the filter has; and the plain recursion, to the bit.
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

TEST(Dither, IsThePlainRecursionToTheBit) {
  // As it is defined: channel by channel, a ring of errors, one sample after the other.
  constexpr std::size_t kBlock = 700;
  for (const Algorithm algorithm : kAll) {
    const std::vector<float> taps = tapsOf(algorithm);
    for (const auto& [bits, channels] :
         {std::pair{16, 1u}, {16, 2u}, {2, 3u}, {8, 8u}, {20, 3u}, {24, 5u}}) {
      // Beside the usual word also with silence and full scale of both signs.
      Signal in = test::noise(channels, 2000);
      for (auto& channel : in) {
        if (bits == 16) break;
        std::fill_n(channel.begin(), 200, 0.0f);
        std::fill_n(channel.begin() + 200, 50, 1.0f);
        std::fill_n(channel.begin() + 250, 50, -1.0f);
      }
      const float scale = std::ldexp(1.0f, bits - 1);
      Signal expected = in;
      std::uint32_t state = 0x12345678;
      const auto draw = [&] {
        state = state * 1664525u + 1013904223u;
        return static_cast<float>(static_cast<std::int32_t>(state)) * 0x1p-32f;
      };
      std::vector<std::vector<float>> errors(channels, std::vector<float>(16));
      for (std::size_t from = 0; from < 2000; from += kBlock) {
        for (std::size_t channel = 0; channel < channels; ++channel) {
          for (std::size_t i = from; i < std::min<std::size_t>(from + kBlock, 2000); ++i) {
            float dither = draw();
            dither += draw();
            auto& past = errors[channel];
            float fedBack = 0;
            for (std::size_t k = 0; k < taps.size(); ++k) fedBack += taps[k] * past[k];
            const float wanted = in[channel][i] * scale - fedBack;
            // The plain path may round ties as it likes.
            const float sum = wanted + dither;
            const float quantised = taps.empty() ? std::nearbyint(sum) : std::round(sum);
            past.insert(past.begin(), quantised - wanted);
            past.pop_back();
            expected[channel][i] = quantised / scale;
          }
        }
      }
      Dither dither(algorithm, bits);
      const Signal out = test::run(dither, in, kRate, kBlock);
      // Silence may be a zero of either sign.
      EXPECT_TRUE(bits == 16 ? test::identical(out, expected) : out == expected)
          << static_cast<int>(algorithm) << ", " << bits << " bits, " << channels << " channels";
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

TEST(Dither, ErrorsOutliveAnotherAlgorithmButNotBrokenSamples) {
  Dither dither(Algorithm::fWeighted);
  test::run(dither, test::noise(1, 64), kRate);
  dither.setAlgorithm(Algorithm::tpdf);
  test::run(dither, test::noise(1, 10), kRate);
  Dither fresh(Algorithm::tpdf);  // as many draws, no errors
  test::run(fresh, test::noise(1, 74), kRate);
  const Signal next = test::noise(1, 64, 0.5f, 3);
  for (Dither* each : {&dither, &fresh}) each->setAlgorithm(Algorithm::fWeighted);
  EXPECT_FALSE(test::identical(test::run(dither, next, kRate), test::run(fresh, next, kRate)));

  for (const float broken :
       {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(), 1e30f}) {
    Dither shaped(Algorithm::lipshitz);
    Signal in = test::noise(2, 1000);
    in[0][500] = broken;
    const Signal out = test::run(shaped, in, kRate);
    const std::vector<float> rest(out[0].begin() + 501, out[0].end());
    const std::vector<float> wanted(in[0].begin() + 501, in[0].end());
    EXPECT_LT(test::largestDifference({rest}, {wanted}), 20.0 / 32768) << broken;
  }
}

}  // namespace
}  // namespace velorin
