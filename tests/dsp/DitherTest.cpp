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
  constexpr int kBits = 16;
  constexpr std::size_t kBlock = 700;
  for (const Algorithm algorithm : kAll) {
    const std::vector<float> taps = tapsOf(algorithm);
    for (const std::size_t channels : {1u, 2u, 3u, 8u}) {
      const Signal in = test::noise(channels, 2000);
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
            const float wanted = in[channel][i] * 32768.0f - fedBack;
            // The plain path may round ties as it likes.
            const float sum = wanted + dither;
            const float quantised = taps.empty() ? std::nearbyint(sum) : std::round(sum);
            past.insert(past.begin(), quantised - wanted);
            past.pop_back();
            expected[channel][i] = quantised / 32768.0f;
          }
        }
      }
      Dither dither(algorithm, kBits);
      EXPECT_TRUE(test::identical(test::run(dither, in, kRate, kBlock), expected))
          << static_cast<int>(algorithm) << ", " << channels << " channels";
    }
  }
}

TEST(Dither, PutsEverySampleOnTheGridAndStaysNear) {
  for (const Algorithm algorithm : kAll) {
    const auto taps = tapsOf(algorithm);
    double reach = 1.5;  // half a step of rounding and one of dither, through the filter
    for (const float tap : taps) reach += 1.5 * std::fabs(tap);
    for (const int bits : {2, 8, 16, 20, 24}) {
      // A full scale of both signs, a sine up to it, something small, silence.
      Signal in = test::sine(5, 20000, 997, kRate, 1.0);
      std::fill(in[1].begin(), in[1].end(), 1.0f);
      std::fill(in[2].begin(), in[2].end(), -1.0f);
      for (float& sample : in[3]) sample *= 1e-4f;
      std::fill(in[4].begin(), in[4].end(), 0.0f);
      Dither dither(algorithm, bits);
      const Signal out = test::run(dither, in, kRate);
      for (std::size_t channel = 0; channel < in.size(); ++channel) {
        double farthest = 0;
        for (const double error : errorOf(out, in, channel, bits)) {
          farthest = std::max(farthest, std::fabs(error));
        }
        EXPECT_LE(farthest, reach) << bits << " bits, channel " << channel;
        EXPECT_GT(farthest, 0.5) << "dither does not mute on silence";
        const auto isOnGrid = [bits](float sample) {
          const float steps = std::ldexp(sample, bits - 1);
          return steps == std::trunc(steps);
        };
        EXPECT_TRUE(std::ranges::all_of(out[channel], isOnGrid)) << bits << " bits";
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
  // Over silence the words are -1, 0 and 1 as often as a triangle has area there.
  Dither dither(Algorithm::tpdf);
  const Signal silence(1, std::vector<float>(kFrames));
  int counts[3] = {};
  for (const double word : errorOf(test::run(dither, silence, kRate), silence, 0, 16)) {
    ASSERT_LE(std::fabs(word), 1);
    ++counts[static_cast<int>(word) + 1];
  }
  const double expected[] = {kFrames / 8.0, kFrames * 0.75, kFrames / 8.0};
  double chiSquare = 0;
  for (int i = 0; i < 3; ++i) chiSquare += std::pow(counts[i] - expected[i], 2) / expected[i];
  EXPECT_LT(chiSquare, 9.2) << "1 % of fair draws exceed it";
}

// The error in Hann windows that overlap by half.
std::vector<std::vector<float>> windowsOf(const std::vector<double>& error) {
  constexpr std::size_t kWindow = 512;
  std::vector<double> hann(kWindow);
  for (std::size_t i = 0; i < kWindow; ++i) {
    hann[i] = 0.5 - 0.5 * std::cos(2 * std::numbers::pi * static_cast<double>(i) / kWindow);
  }
  std::vector<std::vector<float>> windows;
  for (std::size_t from = 0; from + kWindow <= error.size(); from += kWindow / 2) {
    auto& window = windows.emplace_back(kWindow);
    for (std::size_t i = 0; i < kWindow; ++i) {
      window[i] = static_cast<float>(error[from + i] * hann[i]);
    }
  }
  return windows;
}

// Mean power around a frequency in turns a sample; 1 for white noise of power 1.
double densityAt(const std::vector<std::vector<float>>& windows, double turns) {
  double sum = 0;
  for (const auto& window : windows) sum += std::norm(test::transformAt(window, turns, 1));
  const double powerOfHann = 3.0 / 8 * static_cast<double>(windows[0].size());
  return sum / static_cast<double>(windows.size()) / powerOfHann;
}

TEST(Dither, NoiseHasTheSpectrumOfItsFilter) {
  constexpr std::size_t kFrames = 512 * 512;
  const Signal in = test::sine(1, kFrames, 331, kRate, 0.1);
  for (const Algorithm algorithm : kAll) {
    const auto taps = tapsOf(algorithm);
    Dither dither(algorithm);
    const auto error = errorOf(test::run(dither, in, kRate), in, 0, 16);
    // 1 - c[0] z^-1 - …: a quarter of a step squared goes in.
    double total = 1;
    for (const float tap : taps) total += static_cast<double>(tap) * tap;
    EXPECT_NEAR(powerOf(error) / 0.25, total, 0.02 * total);
    EXPECT_NEAR(meanOf(error), 0, 0.01);
    const auto windows = windowsOf(error);
    for (double turns = 0.01; turns < 0.5; turns += 0.035) {
      std::complex<double> transfer = 1;
      for (std::size_t k = 0; k < taps.size(); ++k) {
        transfer -= static_cast<double>(taps[k]) *
                    std::polar(1.0, -2 * std::numbers::pi * turns * static_cast<double>(k + 1));
      }
      const double measured = 10 * std::log10(densityAt(windows, turns) / 0.25);
      EXPECT_NEAR(measured, 10 * std::log10(std::norm(transfer)), 0.7)
          << static_cast<int>(algorithm) << " at " << turns;
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
