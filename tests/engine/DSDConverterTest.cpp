#include "engine/dsd/DSDConverter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <random>

#include "support/DSDFixture.h"
#include "support/VectorLevel.h"

namespace velorin {
namespace {

using test::modulatedSine;
using test::oneBitNoise;
using test::SineRecipe;

std::vector<float> convert(const std::vector<std::uint8_t>& bytes, int decimation) {
  DSDConverter converter(decimation, false);
  std::vector<float> out(bytes.size());
  out.resize(converter.translate(bytes.data(), bytes.size(), out.data()));
  return out;
}

// What there is of a sine of that frequency, and what else, as powers; the frequency fits a whole
// number of times in the samples.
struct Tone {
  double amplitude = 0;
  double rest = 0;
};
Tone toneOf(std::span<const float> samples, double frequency, double rate) {
  const double step = 2 * std::numbers::pi * frequency / rate;
  const auto n = static_cast<double>(samples.size());
  double sine = 0;
  double cosine = 0;
  double power = 0;
  for (std::size_t i = 0; i < samples.size(); ++i) {
    sine += samples[i] * std::sin(step * static_cast<double>(i)) * 2 / n;
    cosine += samples[i] * std::cos(step * static_cast<double>(i)) * 2 / n;
  }
  for (std::size_t i = 0; i < samples.size(); ++i) {
    const double angle = step * static_cast<double>(i);
    const double other = samples[i] - sine * std::sin(angle) - cosine * std::cos(angle);
    power += other * other / n;
  }
  return {std::hypot(sine, cosine), power};
}

double decibels(double amplitude) {
  return 20 * std::log10(amplitude);
}

// The ring of sixteen bytes and the twelve looks at tables of the filter's original form.
std::vector<float> byTables(const std::vector<std::uint8_t>& bytes) {
  const DSDTables& tables = DSDTables::shared();
  std::array<std::uint8_t, 16> ring;
  ring.fill(0x69);
  std::vector<float> out;
  for (std::size_t at = 0; at < bytes.size(); ++at) {
    ring[at & 15] = bytes[at];
    std::uint8_t& turned = ring[(at - 6) & 15];
    turned = tables.reversed[turned];
    double sum = 0;
    for (std::size_t i = 0; i < 6; ++i) {
      sum += tables.lookup[i][ring[(at - i) & 15]];
      sum += tables.lookup[i][ring[(at - 11 + i) & 15]];
    }
    out.push_back(static_cast<float>(sum));
  }
  return out;
}

TEST(DSDConverter, IsTheFilterOfTheTablesHoweverTheBytesCome) {
  const std::vector<std::uint8_t> bytes = oneBitNoise(1, 100'003)[0];
  std::vector<std::uint8_t> turned;
  for (const std::uint8_t byte : bytes) turned.push_back(DSDTables::shared().reversed[byte]);
  EXPECT_EQ(convert(bytes, 1), byTables(bytes));
  std::mt19937 random(5);
  for (const int decimation : {0, 1, 2, 3, 8, 64, 1024}) {
    SCOPED_TRACE(decimation);
    const std::vector<float> whole = convert(bytes, decimation);
    EXPECT_EQ(whole.size(), bytes.size() >> DSDConverter::stagesFor(decimation));
    DSDConverter converter(decimation, true);
    std::vector<float> pieces(bytes.size());
    for (int turn = 0; turn < 2; ++turn) {
      converter.reset();
      std::size_t written = 0;
      for (std::size_t at = 0; at < bytes.size();) {
        const std::size_t count = std::min<std::size_t>(bytes.size() - at, random() % 5000);
        written += converter.translate(&turned[at], count, &pieces[written]);
        at += count;
      }
      EXPECT_TRUE(std::equal(whole.begin(), whole.end(), pieces.begin())) << written;
      EXPECT_EQ(written, whole.size());
    }
  }
}

TEST(DSDConverter, HalfBandStagesAreTheirFilterInEveryInstructionSet) {
  const std::vector<std::uint8_t> bytes = oneBitNoise(1, 20'000)[0];
  constexpr double kHalf[] = {0.5,           0.309419751,   -0.0819836035,  0.0305545703,
                              -0.0101603586, 0.00251381611, -0.000347065768};
  const std::vector<float> whole = convert(bytes, 1);
  for (const vector::Level level : vector::availableLevels()) {
    const test::AtLevel tested(level);
    const std::vector<float> halved = convert(bytes, 2);
    for (std::size_t i = 20; i < halved.size(); ++i) {
      const float* const centre = &whole[2 * i - 11];
      double sum = kHalf[0] * centre[0];
      for (int k = 0; k < 6; ++k) {
        sum += kHalf[k + 1] * (double{centre[-2 * k - 1]} + centre[2 * k + 1]);
      }
      ASSERT_NEAR(halved[i], sum, 3e-7) << i;
    }
  }
}

TEST(DSDConverter, PassesTheAudibleBandAtTheLevelOfTheModulation) {
  struct Case {
    int decimation;    // from 352.8 kHz of DSD64
    double frequency;  // Hz
    double expected;   // dB
    double tolerance;
  };
  // The stage to 44.1 kHz is 6 dB down at 22.05 kHz: that is what a half-band filter is.
  constexpr Case kCases[] = {
      {1, 20'000, -0.001, 0.002}, {2, 20'000, -0.001, 0.002}, {4, 100, 0, 0.001},
      {4, 1000, 0, 0.001},        {4, 10'000, 0, 0.001},      {4, 20'000, -0.001, 0.002},
      {4, 40'000, -2.830, 0.02},  {8, 1000, 0, 0.001},        {8, 10'000, 0, 0.001},
      {8, 15'000, -0.134, 0.002}, {8, 20'000, -2.815, 0.002},
  };
  for (const auto& [decimation, frequency, expected, tolerance] : kCases) {
    const SineRecipe recipe{.channels = 1, .bytes = 39'690, .frequency = frequency};
    const std::vector<float> out = convert(modulatedSine(recipe)[0], decimation);
    const std::size_t settled = 4410 / static_cast<std::size_t>(decimation);  // 12.5 ms
    const Tone tone = toneOf(std::span(out).subspan(settled), frequency, 352'800.0 / decimation);
    EXPECT_NEAR(decibels(tone.amplitude / recipe.amplitude), expected, tolerance)
        << frequency << " Hz, 1:" << decimation;
  }
}

TEST(DSDConverter, AddsNoNoiseToTheAudibleBand) {
  for (const DSDRate rate : {DSDRate::dsd64, DSDRate::dsd128, DSDRate::dsd256, DSDRate::dsd512}) {
    // Down to 44.1 kHz, so that what is left is the audible band.
    const auto times = static_cast<std::size_t>(static_cast<std::uint32_t>(rate) / 2'822'400);
    const int decimation = static_cast<int>(8 * times);
    const SineRecipe recipe{.rate = rate, .channels = 1, .bytes = 39'690 * times};
    const std::vector<float> out = convert(modulatedSine(recipe)[0], decimation);
    const Tone tone = toneOf(std::span(out).subspan(out.size() - 4410), 1000, 44'100);
    EXPECT_NEAR(decibels(tone.amplitude), -6.0206, 0.001) << nameOf(rate);
    EXPECT_LT(10 * std::log10(tone.rest), rate == DSDRate::dsd64 ? -120 : -128) << nameOf(rate);
  }
}

}  // namespace
}  // namespace velorin
