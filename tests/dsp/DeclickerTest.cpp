// The declicker: against a plain reference, to the bit, and against the undamaged signal.
#include "dsp/effects/DeclickerDSP.h"

#include <gtest/gtest.h>

#include "dsp/EffectHarness.h"

namespace velorin {
namespace {

using test::Signal;

constexpr double kRate = 44100;

// As it is defined.
class Reference {
 public:
  float threshold = 3;
  std::size_t limit = 48;
  float blend = 1;
  std::uint64_t found = 0;

  Signal run(Signal signal, std::size_t block) {
    for (std::size_t from = 0; from < signal[0].size(); from += block) {
      const std::size_t n = std::min(block, signal[0].size() - from);
      for (std::size_t channel = 0; channel < std::min<std::size_t>(signal.size(), 2); ++channel) {
        std::vector<float> data(signal[channel].begin() + static_cast<std::ptrdiff_t>(from),
                                signal[channel].begin() + static_cast<std::ptrdiff_t>(from + n));
        data = repaired(data, _tails[channel]);
        std::ranges::copy(data, signal[channel].begin() + static_cast<std::ptrdiff_t>(from));
      }
      _isTailFilled = true;
    }
    return signal;
  }

 private:
  static float median(const float* window) {
    std::vector<float> values(window, window + 21);
    std::ranges::nth_element(values, values.begin() + 10);
    return values[10];
  }

  std::vector<float> repaired(const std::vector<float>& data, std::vector<float>& tail) {
    const std::size_t n = data.size();
    std::vector<float> extended = _isTailFilled ? tail : std::vector<float>(21, data[0]);
    extended.insert(extended.end(), data.begin(), data.end());
    extended.insert(extended.end(), 10, data[n - 1]);
    if (n >= 21) tail.assign(data.end() - 21, data.end());

    std::vector<bool> isClick(n);
    float e = 0;
    for (std::size_t i = 0; i < n; ++i) {
      const float m = median(&extended[11 + i]);
      if (i == 0) e = m * m;
      e = e * 0.9692308f + m * m * 0.03076923f;
      isClick[i] = std::fabs(data[i] - m) > std::max(std::sqrt(e) * threshold, 0.0005f);
      found += isClick[i] ? 1 : 0;
    }

    std::vector<float> repair = data;
    for (std::size_t i = 0; i < n;) {
      if (!isClick[i]) {
        ++i;
        continue;
      }
      std::size_t end = i + 1;
      while (end < n && isClick[end]) ++end;
      const std::size_t s = i > 0 ? i - 1 : 0;
      const std::size_t length = std::min(end + 1, n) - s;
      if (length <= limit) fill(data, repair, s, length);
      i = end;
    }
    if (blend >= 0.9999f) return repair;
    if (blend <= 0.0001f) return data;
    for (std::size_t i = 0; i < n; ++i) repair[i] = data[i] * (1 - blend) + repair[i] * blend;
    return repair;
  }

  static void fill(const std::vector<float>& data, std::vector<float>& repair, std::size_t s,
                   std::size_t length) {
    const std::size_t n = data.size();
    const std::size_t a = s > 0 ? s - 1 : 0;
    const std::size_t b = std::min(s + length, n - 1);
    const float p0 = data[a > 0 ? a - 1 : 0];
    const float p1 = data[a];
    const float p2 = data[b];
    const float p3 = data[std::min(b + 1, n - 1)];
    for (std::size_t k = 0; k < length; ++k) {
      const float t = static_cast<float>(k + 1) / static_cast<float>(length + 1);
      repair[s + k] = p1 + (0.5f * (p2 - p0)) * t +
                      (p0 - 2.5f * p1 + 2 * p2 - 0.5f * p3) * (t * t) +
                      (-0.5f * p0 + 1.5f * p1 - 1.5f * p2 + 0.5f * p3) * (t * t * t);
    }
  }

  std::vector<float> _tails[2] = {std::vector<float>(21), std::vector<float>(21)};
  bool _isTailFilled = false;
};

// A scratch of so many samples in both channels: alternating, so that no filter could call it
// music.
void scratch(Signal& signal, std::size_t at, std::size_t length, float size = 0.9f) {
  for (std::size_t channel = 0; channel < 2; ++channel) {
    for (std::size_t i = 0; i < length; ++i) signal[channel][at + i] = i % 2 == 0 ? size : -size;
  }
}

TEST(Declicker, IsTheReferenceToTheBit) {
  std::vector<Signal> records;
  records.push_back(test::sine(3, 9000, 440, kRate, 0.3));
  records.push_back(test::noise(3, 9000, 0.1f));
  records.push_back(Signal(3, std::vector<float>(9000)));
  records.push_back(Signal(3, std::vector<float>(9000, 0.4f)));
  for (Signal& record : records) {
    for (std::size_t i = 0; i < 9000; ++i) record[1][i] *= 0.5f;
    for (std::size_t length = 1; length <= 60; ++length) scratch(record, 140 * length, length);
    scratch(record, 0, 1);
    scratch(record, 512 * 3 - 1, 2);  // over the end of a block
    scratch(record, 8998, 2);
  }
  struct {
    double threshold, limit, blend;
  } const settings[] = {{3, 48, 1}, {1, 128, 0.7}, {10, 4, 1}, {3, 200, 0.99995}, {1.5, 20, 0}};
  for (const Signal& record : records) {
    for (const auto& [threshold, limit, blend] : settings) {
      for (const std::size_t block : {1u, 7u, 20u, 21u, 64u, 512u, 4096u, 65536u}) {
        SCOPED_TRACE(testing::Message() << "threshold " << threshold << ", block " << block);
        Reference reference;
        reference.threshold = static_cast<float>(threshold);
        reference.limit = std::min<std::size_t>(static_cast<std::size_t>(limit), 128);
        reference.blend = static_cast<float>(blend);
        DeclickerDSP declicker;
        declicker.setThreshold(threshold);
        declicker.setMaxClickLength(limit);
        declicker.setBlend(blend);
        const Signal out = test::run(declicker, record, kRate, block);
        ASSERT_TRUE(test::identical(out, reference.run(record, block)));
        EXPECT_EQ(declicker.clicksFound(), reference.found);
        EXPECT_EQ(declicker.processCalls(), (9000 + block - 1) / block);
        EXPECT_TRUE(blend > 0 || test::identical(out, record));
        EXPECT_EQ(out[2], record[2]) << "a third channel";
      }
    }
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
