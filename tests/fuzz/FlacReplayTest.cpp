// The fuzzer's body on fixed inputs, so that the everyday suite covers hostile files too.
#include <gtest/gtest.h>

#include <random>

#include "fuzz/FlacDrive.h"

namespace velorin::test {
namespace {

TEST(FlacReplay, SeedsTruncatedAndFlippedKeepEveryPromise) {
  std::mt19937 random(20);
  const std::vector<FlacSeed> seeds = flacSeeds();
  ASSERT_GE(seeds.size(), 8u);
  for (const FlacSeed& seed : seeds) {
    SCOPED_TRACE(seed.name);
    driveFlac(seed.input);
    for (int i = 0; i < 25; ++i) {
      std::vector<std::uint8_t> input = seed.input;
      input.resize(random() % input.size());
      driveFlac(input);
    }
    for (int i = 0; i < 75; ++i) {
      std::vector<std::uint8_t> input = seed.input;
      // Every third goes for the headers, where a bit means most.
      const std::size_t reach = i % 3 == 0 ? kFlacScriptBytes + 64 : input.size();
      for (unsigned flips = 1 + random() % 8; flips > 0; --flips) {
        input[random() % reach] ^= static_cast<std::uint8_t>(1u << random() % 8);
      }
      driveFlac(input);
    }
  }
}

}  // namespace
}  // namespace velorin::test
