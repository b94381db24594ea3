#include "engine/joins/CrossfadeMixer.h"

#include <gtest/gtest.h>

#include "engine/output/ClientFormat.h"

namespace velorin {
namespace {

struct Blocks {
  std::uint32_t newer;
  std::uint32_t older;
};

// The law in double precision, over blocks of any shape; `tolerance` in steps of the sample.
template <class Sample>
void expectLaw(const StreamFormat& format, double scale, std::int64_t total,
               const std::vector<Blocks>& blocks, double tolerance) {
  SCOPED_TRACE(format.description() + ", fade of " + std::to_string(total));
  CrossfadeMixer mixer(format, total);
  std::int64_t at = 0;
  for (const auto [newer, older] : blocks) {
    const std::uint32_t frames = std::max(newer, older);
    PlanarBuffers newSide(2, std::max(frames, 1u), sizeof(Sample));
    PlanarBuffers oldSide(2, std::max(older, 1u), sizeof(Sample));
    std::vector<double> expected[2];
    for (int c = 0; c < 2; ++c) {
      // What lies behind a side's count must not be heard.
      for (std::uint32_t i = 0; i < frames; ++i) {
        const auto ofNew = static_cast<Sample>(scale * std::sin(0.37 * i + c));
        const auto ofOld = static_cast<Sample>(scale * std::cos(0.11 * i - c));
        newSide.list().channel<Sample>(c)[i] = ofNew;
        if (i < older) oldSide.list().channel<Sample>(c)[i] = ofOld;
        const double t = std::min(1.0, static_cast<double>(at + i) / static_cast<double>(total));
        expected[c].push_back((i < newer ? std::sqrt(t) * ofNew : 0) +
                              (i < older ? std::sqrt(1 - t) * ofOld : 0));
      }
    }
    ASSERT_EQ(frames, mixer.mix(newSide.list(), newer, oldSide.list(), older));
    for (int c = 0; c < 2; ++c) {
      EXPECT_EQ(frames * sizeof(Sample), newSide.list().buffers[c].byteSize);
      for (std::uint32_t i = 0; i < frames; ++i) {
        const double law = std::is_integral_v<Sample> ? std::trunc(expected[c][i]) : expected[c][i];
        const double held = std::clamp(law, -scale - (std::is_integral_v<Sample> ? 1 : scale),
                                       std::is_integral_v<Sample> ? scale : 2 * scale);
        ASSERT_NEAR(held, newSide.list().channel<Sample>(c)[i], tolerance) << at << " + " << i;
      }
    }
    at += frames;
    EXPECT_EQ(at, mixer.framesWritten());
    EXPECT_EQ(at >= total, mixer.isComplete());
  }
}

TEST(CrossfadeMixer, FollowsTheEqualPowerLaw) {
  const std::vector<std::vector<Blocks>> shapes = {
      {{4096, 4096}, {4096, 4096}, {4096, 4096}},
      {{1, 1}, {700, 513}, {0, 512}, {512, 0}, {300, 1300}, {0, 0}, {9000, 4000}},
  };
  for (const auto& blocks : shapes) {
    for (const std::int64_t total : {1, 777, 10'000}) {
      // One step of an integer: where the float result lies a rounding beside a whole number.
      expectLaw<float>(clientFormatFor(false, 16, 44100, 2), 1.0, total, blocks, 2e-7);
      expectLaw<std::int16_t>(clientFormatFor(true, 16, 44100, 2), 32767, total, blocks, 1);
      expectLaw<std::int32_t>(clientFormatFor(true, 24, 44100, 2), 2147483647.0, total, blocks, 1);
    }
  }
}

// Constant sides give the gains themselves.
TEST(CrossfadeMixer, GainsArePowerComplementary) {
  constexpr std::uint32_t kFrames = 5000;
  const StreamFormat format = StreamFormat::planarFloat(44100, 2);
  CrossfadeMixer mixer(format, kFrames);
  PlanarBuffers sides[2] = {{2, kFrames + 1, 4}, {2, kFrames + 1, 4}};
  std::fill_n(sides[0].list().channel<float>(0), kFrames + 1, 1.0f);  // newer, alone
  std::fill_n(sides[1].list().channel<float>(1), kFrames + 1, 1.0f);  // older, alone
  mixer.mix(sides[0].list(), kFrames + 1, sides[1].list(), kFrames + 1);
  const float* newer = sides[0].list().channel<float>(0);
  const float* older = sides[0].list().channel<float>(1);
  for (std::uint32_t i = 0; i <= kFrames; ++i) {
    ASSERT_NEAR(1.0, double{newer[i]} * newer[i] + double{older[i]} * older[i], 1.5e-7) << i;
  }
  EXPECT_EQ(0.0f, newer[0]) << "starts with the old side untouched";
  EXPECT_EQ(1.0f, older[0]);
  EXPECT_EQ(1.0f, newer[kFrames]) << "ends with the new side untouched";
  EXPECT_EQ(0.0f, older[kFrames]);
}

TEST(CrossfadeMixer, FullScaleSaturatesAndNoLengthIsAllNew) {
  for (const std::int64_t total : {2, 0}) {
    const StreamFormat format = clientFormatFor(true, 24, 44100, 1);
    CrossfadeMixer mixer(format, total);
    PlanarBuffers newer(1, 2, 4);
    PlanarBuffers older(1, 2, 4);
    std::fill_n(newer.list().channel<std::int32_t>(0), 2, INT32_MIN);
    std::fill_n(older.list().channel<std::int32_t>(0), 2, INT32_MIN + 1);
    mixer.mix(newer.list(), 2, older.list(), 2);
    const auto* mixed = newer.list().channel<std::int32_t>(0);
    EXPECT_EQ(total == 0 ? INT32_MIN : INT32_MIN + 1, mixed[0]);
    EXPECT_EQ(INT32_MIN, mixed[1]);
  }
}

}  // namespace
}  // namespace velorin
