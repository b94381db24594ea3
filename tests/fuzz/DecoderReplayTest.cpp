// The decoders' fuzzer on fixed inputs, so that the everyday suite covers hostile files too.
#include <gtest/gtest.h>

#include <random>

#include "foundation/Log.h"
#include "fuzz/DecoderDrive.h"

namespace velorin::test {
namespace {

TEST(DecoderReplay, SeedsTruncatedAndFlippedKeepEveryPromise) {
  const log::Capture quiet;
  std::mt19937 random(20);
  for (const char* extension : {"opus", "wv"}) {
    for (const DecoderSeed& seed : encodedSeeds(extension)) {
      SCOPED_TRACE(seed.name);
      driveDecoder(seed.input, extension);
      for (int i = 0; i < 60; ++i) {
        std::vector<std::uint8_t> input = seed.input;
        if (i % 4 == 0) input.resize(random() % input.size());
        // Every third goes for the headers, where a bit means most.
        const std::size_t reach =
            std::min<std::size_t>(i % 3 == 0 ? kScriptBytes + 64 : SIZE_MAX, input.size());
        for (unsigned flips = random() % 8; flips > 0 && reach > 0; --flips) {
          input[random() % reach] ^= static_cast<std::uint8_t>(1u << random() % 8);
        }
        driveDecoder(input, extension);
      }
    }
  }
}

}  // namespace
}  // namespace velorin::test
