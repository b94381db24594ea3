// The declicker against the undamaged signal: what it finds, repairs and leaves alone.
#include "dsp/effects/DeclickerDSP.h"

#include <gtest/gtest.h>

#include "dsp/EffectHarness.h"

namespace velorin {
namespace {

using test::Signal;

constexpr double kRate = 44100;

// A scratch of so many samples in both channels: alternating, so that no filter could call it
// music.
void scratch(Signal& signal, std::size_t at, std::size_t length, float size = 0.9f) {
  for (std::size_t channel = 0; channel < 2; ++channel) {
    for (std::size_t i = 0; i < length; ++i) signal[channel][at + i] = i % 2 == 0 ? size : -size;
  }
}

TEST(Declicker, GivesBackWhatTheClickTook) {
  // A click of each length in the middle of a tone whose period is long beside it. A window of 21
  // tells up to ten bad samples from the good ones.
  for (std::size_t length = 1; length <= 10; ++length) {
    const Signal clean = test::sine(2, 4000, 100, kRate, 0.3);
    for (const std::size_t at : {1500u, 1610u, 2047u, 2048u}) {
      Signal damaged = clean;
      scratch(damaged, at, length, 1.8f);
      DeclickerDSP declicker;
      const Signal out = test::run(declicker, damaged, kRate, 4000);
      // Without the click's neighbours a cubic follows the sine to a hundredth; 1.5 were wrong.
      EXPECT_LT(test::largestDifference(out, clean), 0.01) << length << " at " << at;
      EXPECT_EQ(declicker.clicksFound(), 2 * length);
    }
  }
  // Close behind the end of a block as in the middle of one, and mixed with what was there.
  for (const std::size_t at : {300u, 512u, 514u}) {
    Signal damaged = test::sine(2, 4000, 100, kRate, 0.3);
    scratch(damaged, at, 2, 1.8f);
    for (const double blend : {0.0, 0.25, 1.0}) {
      DeclickerDSP declicker;
      declicker.setBlend(blend);
      const Signal out = test::run(declicker, damaged, kRate, 512);
      EXPECT_EQ(declicker.clicksFound(), 4u);
      EXPECT_EQ(declicker.processCalls(), 8u);
      if (at == 512) continue;  // found, but the block has nothing in front of it to repair it by
      EXPECT_NEAR(test::largestDifference(out, damaged), blend * 1.8, 0.35 * blend) << at;
    }
  }
  // A click is what stands out by the threshold, and in silence by a floor.
  struct {
    float level, click;
    double threshold;
    bool isFound;
  } const cases[] = {{0, 0.00049f, 3, false},
                     {0, 0.00051f, 3, true},
                     {0.2f, 0.62f, 2, true},
                     {0.2f, 0.58f, 2, false},
                     {0.2f, 0.62f, 3, false}};
  for (const auto& each : cases) {
    Signal signal(1, std::vector<float>(1000, each.level));
    signal[0][500] = each.click;
    DeclickerDSP declicker;
    declicker.setThreshold(each.threshold);
    test::run(declicker, signal, kRate, 1000);
    EXPECT_EQ(declicker.clicksFound(), each.isFound ? 1u : 0u) << each.click;
  }
  // Nothing to repair, nothing changed.
  Signal hum = test::noise(2, 9000, 0.1f);
  for (auto& channel : hum) {
    for (float& sample : channel) sample += 0.4f;
  }
  for (const Signal& clean :
       {test::sine(2, 9000, 997, kRate, 0.7), hum, Signal(2, std::vector<float>(9000))}) {
    DeclickerDSP declicker;
    EXPECT_TRUE(test::identical(test::run(declicker, clean, kRate), clean));
    EXPECT_EQ(declicker.clicksFound(), 0u);
  }
}

TEST(Declicker, TakesALongRunForMusic) {
  // In a square wave of seven samples either way most of a window stands against its middle: all of
  // it is marked, and nothing around it.
  const auto isRepaired = [](std::size_t marked, double limit) {
    Signal signal(1, std::vector<float>(1000));
    for (std::size_t i = 0; i < marked; ++i) signal[0][400 + i] = i / 7 % 2 == 0 ? 0.5f : -0.5f;
    DeclickerDSP declicker;
    declicker.setThreshold(0.5);
    declicker.setMaxClickLength(limit);
    const Signal out = test::run(declicker, signal, kRate, 1000);
    EXPECT_EQ(declicker.clicksFound(), marked);
    return !test::identical(out, signal);
  };
  // With a sample more on either side.
  EXPECT_TRUE(isRepaired(46, 48));
  EXPECT_FALSE(isRepaired(47, 48));
  EXPECT_TRUE(isRepaired(126, 200));
  EXPECT_FALSE(isRepaired(127, 200)) << "more than 128 is never asked for";
  EXPECT_TRUE(isRepaired(1, 3));
  EXPECT_FALSE(isRepaired(1, 2));
}

TEST(Declicker, LeavesWhatIsBeyondItsLimits) {
  Signal in(3, std::vector<float>(65540));
  in[0][100] = in[0][65538] = in[2][100] = 0.5f;
  DeclickerDSP declicker;
  const Signal out = test::run(declicker, in, kRate, 65540);
  EXPECT_EQ(out[0][100], 0);
  EXPECT_EQ(out[0][65538], 0.5f);
  EXPECT_EQ(out[2][100], 0.5f);
  // One sample a block has nothing in front but what was kept of longer ones.
  DeclickerDSP single;
  EXPECT_EQ(test::run(single, Signal(1, {0.5f}), kRate, 1)[0][0], 0.5f);
}

}  // namespace
}  // namespace velorin
