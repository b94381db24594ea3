#include "dsp/filters/RunningMedian.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <limits>

#include "dsp/EffectHarness.h"
#include "support/VectorLevel.h"

namespace velorin {
namespace {

constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kOdd[] = {0.0f, -0.0f, 1e-40f, -1e-40f, kInfinity, -kInfinity, 1.0f, kNaN, -kNaN};

// Total order: by the bits, below zero the other way round.
bool before(float a, float b) {
  const auto key = [](float value) {
    const auto bits = std::bit_cast<std::int32_t>(value);
    return bits < 0 ? bits ^ INT32_MAX : bits;
  };
  return key(a) < key(b);
}

std::vector<float> bySelection(const std::vector<float>& in) {
  std::vector<float> medians;
  for (std::size_t i = 0; i + kMedianWindow <= in.size(); ++i) {
    std::vector<float> window(in.begin() + static_cast<std::ptrdiff_t>(i),
                              in.begin() + static_cast<std::ptrdiff_t>(i + kMedianWindow));
    std::nth_element(window.begin(), window.begin() + 10, window.end(), before);
    medians.push_back(window[10]);
  }
  return medians;
}

using Bits = std::independent_bits_engine<std::mt19937, 32, std::uint32_t>;

std::vector<float> filled(std::size_t count, float (*value)(std::size_t i, Bits& bits)) {
  Bits bits(7);
  std::vector<float> values(count);
  for (std::size_t i = 0; i < count; ++i) values[i] = value(i, bits);
  return values;
}

TEST(RunningMedian, IsTheEleventhOf21WhateverTheyAre) {
  constexpr std::size_t kCount = 700;
  const struct {
    const char* name;
    std::vector<float> in;
  } cases[] = {
      {"noise", test::noise(1, kCount)[0]},
      {"constant", std::vector<float>(kCount, -0.25f)},
      {"rising", filled(kCount, [](auto i, auto&) { return static_cast<float>(i) - 300; })},
      {"falling", filled(kCount, [](auto i, auto&) { return 300 - static_cast<float>(i); })},
      // A network of comparisons is right when it is for zeros and ones.
      {"0 or 1", filled(200'000, [](auto, auto& b) { return static_cast<float>(b() % 2); })},
      {"few values", filled(kCount, [](auto, auto& b) { return static_cast<float>(b() % 3); })},
      {"any bits", filled(kCount, [](auto, auto& b) { return std::bit_cast<float>(b()); })},
      {"zeros, infinities, denormals, NaNs",
       filled(kCount, [](auto, auto& b) { return kOdd[b() % std::size(kOdd)]; })},
  };
  for (const vector::Level level : vector::availableLevels()) {
    const test::AtLevel tested(level);
    for (const auto& [name, in] : cases) {
      const std::vector<float> expected = bySelection(in);
      std::vector<float> out(expected.size());
      medianOf21(in.data(), out.data(), out.size());
      EXPECT_TRUE(test::identical({out}, {expected}))
          << name << ", level " << static_cast<int>(level);
    }
  }
}

TEST(RunningMedian, TakesAndLeavesExactlyItsRun) {
  const std::vector<float> source = test::noise(1, 800)[0];
  for (const vector::Level level : vector::availableLevels()) {
    const test::AtLevel tested(level);
    for (std::size_t n = 0; n < 530; n = n < 67 ? n + 1 : n + 37) {
      // A copy of its own, so that a sanitizer sees a read past the end.
      const std::vector<float> in(source.begin() + 3,
                                  source.begin() + 3 + static_cast<std::ptrdiff_t>(n + 20));
      std::vector<float> out(n + 9, 0.5f);
      {
        const realtime::Scope scope;
        medianOf21(in.data(), out.data() + 1, n);
      }
      std::vector<float> expected = bySelection(in);
      expected.insert(expected.begin(), 0.5f);
      expected.resize(n + 9, 0.5f);
      ASSERT_EQ(out, expected) << n << " values, level " << static_cast<int>(level);
    }
  }
}

}  // namespace
}  // namespace velorin
