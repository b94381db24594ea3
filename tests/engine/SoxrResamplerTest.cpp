#include "engine/resampling/SoxrResampler.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>
#include <random>

namespace velorin {
namespace {

struct Rates {
  double source;
  double target;
};

constexpr Rates kEveryday[] = {{44'100, 96'000},  {96'000, 44'100}, {44'100, 48'000},
                               {48'000, 44'100},  {44'100, 88'200}, {192'000, 96'000},
                               {44'100, 192'000}, {192'000, 44'100}};
constexpr Rates kExtreme[] = {{8'000, 384'000},   {384'000, 8'000},    {655'350, 8'000},
                              {8'000, 655'350},   {44'100, 44'123.45}, {11'025, 768'000},
                              {655'350, 654'321}, {44'100, 44'100.02}};

std::unique_ptr<SoxrResampler> made(Rates rates, std::uint32_t channels = 1) {
  auto resampler = SoxrResampler::create(rates.source, rates.target, channels);
  EXPECT_NE(resampler, nullptr) << rates.source << " to " << rates.target;
  return resampler;
}

// The whole of a stream through one channel, tail included, in calls of the given sizes.
std::vector<double> converted(SoxrResampler& resampler, std::uint32_t channel,
                              const std::vector<double>& input,
                              const std::vector<std::uint32_t>& sizes = {4096}) {
  std::vector<double> all;
  const auto take = [&](std::span<const double> some, std::uint32_t most) {
    EXPECT_LE(some.size(), most);
    all.insert(all.end(), some.begin(), some.end());
    return !some.empty();
  };
  std::size_t turn = 0;
  for (std::size_t at = 0; at < input.size();) {
    const auto count = static_cast<std::uint32_t>(
        std::min<std::size_t>(sizes[turn++ % sizes.size()], input.size() - at));
    take(resampler.process(channel, input.data() + at, count), resampler.maximumOutput(count));
    at += count;
  }
  while (take(resampler.drain(channel, 1000), 1000)) continue;
  return all;
}

std::vector<double> noise(std::size_t count, unsigned seed) {
  std::mt19937 random(seed);
  std::vector<double> samples(count);
  for (double& sample : samples) sample = random() / 2147483648.0 - 1;
  return samples;
}

std::vector<double> sine(double frequency, double rate, std::size_t count) {
  std::vector<double> samples(count);
  for (std::size_t i = 0; i < count; ++i) {
    samples[i] = std::sin(2 * std::numbers::pi * frequency * static_cast<double>(i) / rate);
  }
  return samples;
}

TEST(SoxrResampler, RefusesWhatItCannotDo) {
  constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  for (const Rates rates : {Rates{44'100, 44'100}, Rates{44'100, 44'100.009}, Rates{0, 44'100},
                            Rates{44'100, 0}, Rates{-1, 44'100}, Rates{kNaN, 44'100},
                            Rates{44'100, kInfinity}, Rates{1, 655'350}, Rates{1e9, 8000}}) {
    EXPECT_EQ(SoxrResampler::create(rates.source, rates.target, 2), nullptr)
        << rates.source << " to " << rates.target;
  }
  EXPECT_EQ(SoxrResampler::create(44'100, 48'000, 0), nullptr);
  const auto resampler = made({44'100, 48'000}, 1);
  const double sample = 0;
  EXPECT_TRUE(resampler->process(1, &sample, 1).empty());
  EXPECT_TRUE(resampler->drain(1, 1).empty());
}

TEST(SoxrResampler, KeepsTimeAndLength) {
  std::vector<Rates> all(std::begin(kEveryday), std::end(kEveryday));
  all.insert(all.end(), std::begin(kExtreme), std::end(kExtreme));
  for (const Rates rates : all) {
    SCOPED_TRACE(testing::Message() << rates.source << " to " << rates.target);
    const auto resampler = made(rates);
    ASSERT_NE(resampler, nullptr);
    // An impulse where an output sample falls nearly on the input sample.
    const std::size_t length = static_cast<std::size_t>(std::max(rates.source / 2, 20'000.0));
    const std::size_t at = length / 2;
    std::vector<double> input(length);
    input[at] = 1;
    const std::vector<double> output = converted(*resampler, 0, input);
    const double ratio = rates.target / rates.source;
    EXPECT_NEAR(static_cast<double>(output.size()), std::round(length * ratio), 1);
    const auto peak =
        std::ranges::max_element(output, {}, [](double sample) { return std::fabs(sample); });
    EXPECT_LE(std::fabs((peak - output.begin()) - at * ratio), 0.5 * std::max(1.0, ratio) + 0.001);
  }
}

TEST(SoxrResampler, ASineStaysThatSine) {
  for (const Rates rates : kEveryday) {
    SCOPED_TRACE(testing::Message() << rates.source << " to " << rates.target);
    const auto resampler = made(rates);
    ASSERT_NE(resampler, nullptr);
    for (const double frequency : {997.0, 19'001.0}) {
      const auto length = static_cast<std::size_t>(rates.source);
      const std::vector<double> output =
          converted(*resampler, 0, sine(frequency, rates.source, length));
      const std::vector<double> ideal = sine(frequency, rates.target, output.size());
      double squares = 0;
      const std::size_t from = output.size() / 4;
      const std::size_t to = 3 * output.size() / 4;
      for (std::size_t i = from; i < to; ++i) squares += std::pow(output[i] - ideal[i], 2);
      const double error = 10 * std::log10(squares / static_cast<double>(to - from));
      // At 19 kHz the passband's ripple counts as an error of level; see the bench for it.
      EXPECT_LT(error, frequency < 1000 ? -150 : -60) << frequency << " Hz";
      resampler->clear();
    }
  }
}

TEST(SoxrResampler, CutsCallsAndChannelsDoNotShow) {
  for (const Rates rates : {kEveryday[0], kEveryday[1], kExtreme[4]}) {
    SCOPED_TRACE(testing::Message() << rates.source << " to " << rates.target);
    const std::vector<double> first = noise(60'000, 1);
    const std::vector<double> second = noise(60'000, 2);
    const auto alone = made(rates);
    ASSERT_NE(alone, nullptr);
    const std::vector<double> whole = converted(*alone, 0, first);
    EXPECT_EQ(converted(*made(rates), 0, first, {1000}), whole);
    EXPECT_EQ(converted(*made(rates), 0, first, {1, 4096, 17, 333}), whole);

    // Two channels, block by block in turn.
    const auto pair = made(rates, 2);
    std::vector<double> outputs[2];
    for (std::size_t at = 0; at < first.size(); at += 4000) {
      const auto left = pair->process(0, &first[at], 4000);
      outputs[0].insert(outputs[0].end(), left.begin(), left.end());
      const std::size_t count = left.size();
      const auto right = pair->process(1, &second[at], 4000);
      outputs[1].insert(outputs[1].end(), right.begin(), right.end());
      ASSERT_EQ(right.size(), count);
    }
    EXPECT_TRUE(std::equal(outputs[0].begin(), outputs[0].end(), whole.begin()));
    const std::vector<double> other = converted(*made(rates), 0, second);
    EXPECT_TRUE(std::equal(outputs[1].begin(), outputs[1].end(), other.begin()));
    EXPECT_GT(outputs[0].size(), whole.size() / 2);
  }
}

TEST(SoxrResampler, ClearIsAsGoodAsNew) {
  const std::vector<double> input = noise(30'000, 5);
  for (const Rates rates : {kEveryday[0], kEveryday[1]}) {
    const auto resampler = made(rates);
    ASSERT_NE(resampler, nullptr);
    const std::vector<double> fresh = converted(*resampler, 0, input);
    // Drained: nothing goes in until it is cleared.
    EXPECT_TRUE(resampler->process(0, input.data(), 4096).empty());
    EXPECT_TRUE(resampler->drain(0, 4096).empty());
    resampler->clear();
    EXPECT_EQ(converted(*resampler, 0, input), fresh);
    resampler->clear();
    // Cleared in the middle, as a seek does.
    for (int i = 0; i < 3; ++i) resampler->process(0, input.data(), 4096);
    resampler->clear();
    EXPECT_EQ(converted(*resampler, 0, input), fresh);
    resampler->clear();
    EXPECT_TRUE(resampler->drain(0, 100).empty());
  }
}

}  // namespace
}  // namespace velorin
