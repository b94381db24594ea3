#include "engine/joins/CrossfadeMixer.h"

#include <gtest/gtest.h>

#include "engine/output/ClientFormat.h"

namespace velorin {
namespace {

struct Block {
  std::uint32_t newer;
  std::uint32_t older;
};

// The law in double precision. `top` is the sample type's full scale.
template <class Sample>
void expectLaw(const StreamFormat& format, double top, std::int64_t total,
               const std::vector<Block>& blocks) {
  SCOPED_TRACE(format.description() + ", fade of " + std::to_string(total));
  CrossfadeMixer mixer(format, total);
  std::int64_t at = 0;
  for (const auto [newer, older] : blocks) {
    const std::uint32_t frames = std::max(newer, older);
    PlanarBuffers newSide(1, std::max(frames, 1u), sizeof(Sample));
    PlanarBuffers oldSide(1, std::max(older, 1u), sizeof(Sample));
    auto* mixed = newSide.list().channel<Sample>(0);
    std::vector<double> expected;
    for (std::uint32_t i = 0; i < frames; ++i) {
      // Both at full scale every now and then; what lies behind a side's count must not be heard.
      const auto ofNew = static_cast<Sample>(i % 7 == 0 ? -top : top * std::sin(0.37 * i));
      const auto ofOld = static_cast<Sample>(i % 7 == 0 ? -top : top * std::cos(0.11 * i));
      mixed[i] = ofNew;
      if (i < older) oldSide.list().channel<Sample>(0)[i] = ofOld;
      const auto k = static_cast<double>(at + i);
      const double t = total > 0 ? std::min(1.0, k / static_cast<double>(total)) : 1.0;
      expected.push_back((i < newer ? std::sqrt(t) * ofNew : 0) +
                         (i < older ? std::sqrt(1 - t) * ofOld : 0));
    }
    ASSERT_EQ(frames, mixer.mix(newSide.list(), newer, oldSide.list(), older));
    EXPECT_EQ(frames * sizeof(Sample), newSide.list().buffers[0].byteSize);
    for (std::uint32_t i = 0; i < frames; ++i) {
      // An integer may be a step off where the exact result is a rounding beside a whole number.
      if constexpr (std::is_integral_v<Sample>) {
        ASSERT_NEAR(std::trunc(std::clamp(expected[i], -top - 1, top)), mixed[i], 1) << at + i;
      } else {
        ASSERT_NEAR(expected[i], mixed[i], 2e-7) << at + i;
      }
    }
    at += frames;
    EXPECT_EQ(at, mixer.framesWritten());
    EXPECT_EQ(at >= total, mixer.isComplete());
  }
}

TEST(CrossfadeMixer, FollowsTheEqualPowerLaw) {
  const std::vector<Block> even = {{4096, 4096}, {4096, 4096}, {4096, 4096}};
  const std::vector<Block> odd = {{1, 1},      {700, 513}, {0, 512},    {512, 0},
                                  {300, 1300}, {0, 0},     {9000, 4000}};
  for (const auto& blocks : {even, odd}) {
    for (const std::int64_t total : {0, 1, 777, 10'000}) {
      expectLaw<float>(clientFormatFor(false, 16, 44100, 1), 1, total, blocks);
      expectLaw<std::int16_t>(clientFormatFor(true, 16, 44100, 1), 32767, total, blocks);
      expectLaw<std::int32_t>(clientFormatFor(true, 24, 44100, 1), 2147483647, total, blocks);
    }
  }
}

}  // namespace
}  // namespace velorin
