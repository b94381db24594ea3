// Sections and their cascade against the plain recursion, to the bit.
#include <gtest/gtest.h>

#include <limits>

#include "dsp/EffectHarness.h"
#include "dsp/filters/Biquad.h"
#include "dsp/filters/BiquadCascade.h"
#include "support/VectorLevel.h"

namespace velorin {
namespace {

using Sections = std::vector<BiquadCoefficients>;
using test::Signal;

Sections thirdOctaves(double rate, std::size_t count) {
  Sections sections;
  for (std::size_t k = 0; k < count; ++k) {
    const double f = std::min(20 * std::pow(2.0, static_cast<double>(k) / 3), 0.45 * rate);
    sections.push_back(biquad::peaking(rate, f, 4.318, k % 3 == 0 ? -6 : 4.5));
  }
  return sections;
}

std::vector<float> plainRecursion(const Sections& sections, const std::vector<float>& in) {
  std::vector<double> values(in.begin(), in.end());
  for (const BiquadCoefficients& c : sections) {
    test::PlainSection section(c);
    for (double& x : values) x = section.next(x);
  }
  return {values.begin(), values.end()};
}

void process(BiquadCascade& cascade, Signal& signal, std::size_t from, std::size_t frames) {
  std::vector<float*> planes;
  for (auto& channel : signal) planes.push_back(channel.data() + from);
  const realtime::Scope scope;
  cascade.process(planes.data(), frames);
}

TEST(BiquadCascade, IsThePlainRecursionToTheBit) {
  const Sections all = thirdOctaves(48000, 33);
  for (const vector::Level level : vector::availableLevels()) {
    const test::AtLevel tested(level);
    for (std::size_t count = 0; count <= all.size(); ++count) {
      const Sections sections(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(count));
      const std::size_t channels = 1 + count % 8;
      // Runs of every length up to 67, each at another alignment, then some around a tile's end.
      std::vector<std::size_t> blocks;
      for (std::size_t n = 0; n <= 67; ++n) blocks.push_back(n);
      blocks.insert(blocks.end(), {511, 512, 513, 1025});
      std::size_t frames = 0;
      for (const std::size_t n : blocks) frames += n;
      const Signal in = test::noise(channels, frames);
      Signal out = in;
      BiquadCascade cascade(sections, channels);
      std::size_t from = 0;
      for (const std::size_t n : blocks) {
        process(cascade, out, from, n);
        from += n;
      }
      Signal expected;
      for (const auto& channel : in) expected.push_back(plainRecursion(sections, channel));
      ASSERT_TRUE(test::identical(out, expected))
          << count << " sections, level " << static_cast<int>(level);
    }
  }
}

TEST(BiquadCascade, FiltersOneChannelWithItsOwnStateIntoPlaceOrElsewhere) {
  const Sections sections = thirdOctaves(44100, 5);
  const Signal in = test::noise(3, 2000);
  Signal together = in;
  BiquadCascade cascade(sections, 3);
  process(cascade, together, 0, 2000);
  // Channel 0 alone, then all three, then 2 and 1 alone: the states must not mix.
  cascade.reset();
  Signal mixed(3, std::vector<float>(2000));
  const auto alone = [&](std::size_t channel, std::size_t from, std::size_t to) {
    cascade.processChannel(channel, in[channel].data() + from, mixed[channel].data() + from,
                           to - from);
  };
  for (std::size_t channel = 0; channel < 3; ++channel) alone(channel, 0, 700);
  for (std::size_t channel = 0; channel < 3; ++channel) {
    std::copy(in[channel].begin() + 700, in[channel].end(), mixed[channel].begin() + 700);
  }
  process(cascade, mixed, 700, 600);
  alone(2, 1300, 2000);
  alone(1, 1300, 2000);
  cascade.processChannel(0, mixed[0].data() + 1300, mixed[0].data() + 1300, 700);
  EXPECT_TRUE(test::identical(mixed, together));

  // Another takes over in the middle.
  cascade.reset();
  Signal handed = in;
  process(cascade, handed, 0, 700);
  BiquadCascade next(sections, 3);
  next.takeState(cascade);
  process(next, handed, 700, 1300);
  EXPECT_TRUE(test::identical(handed, together));
}

TEST(BiquadCascade, StartsAgainAfterWhatIsNotANumber) {
  const Sections sections = thirdOctaves(48000, 31);
  constexpr float kBad[] = {std::numeric_limits<float>::quiet_NaN(),
                            std::numeric_limits<float>::infinity(),
                            -std::numeric_limits<float>::infinity()};
  for (const float bad : kBad) {
    for (const std::size_t channels : {1u, 2u, 5u}) {
      Signal signal = test::noise(channels, 2000);
      const Signal in = signal;
      signal.back()[700] = bad;
      BiquadCascade cascade(sections, channels);
      for (std::size_t from = 0; from < 2000; from += 1000) process(cascade, signal, from, 1000);
      // The other channels hear nothing of it; the broken one goes on as if just made.
      for (std::size_t channel = 0; channel + 1 < channels; ++channel) {
        EXPECT_TRUE(test::identical({signal[channel]}, {plainRecursion(sections, in[channel])}));
      }
      const std::vector<float> rest(in.back().begin() + 1000, in.back().end());
      const std::vector<float> heard(signal.back().begin() + 1000, signal.back().end());
      EXPECT_TRUE(test::identical({heard}, {plainRecursion(sections, rest)}));
    }
  }
}

TEST(BiquadCascade, FadesToExactSilence) {
  // Rings for long at 20 Hz: its tail passes through all of float's denormals.
  BiquadCascade cascade(thirdOctaves(48000, 4), 2);
  Signal signal = test::impulse(2, 48000);
  process(cascade, signal, 0, 48000);
  float smallest = 1;
  for (int second = 0; second < 20; ++second) {
    for (auto& channel : signal) std::fill(channel.begin(), channel.end(), 0.0f);
    process(cascade, signal, 0, 48000);
    for (const float sample : signal[1]) {
      if (sample != 0) smallest = std::min(smallest, std::fabs(sample));
    }
  }
  EXPECT_LT(smallest, 1e-37f);
  EXPECT_GE(smallest, std::numeric_limits<float>::min());
  EXPECT_EQ(test::largestDifference(signal, Signal(2, std::vector<float>(48000))), 0);
}

}  // namespace
}  // namespace velorin
