// Writes the seeds of dsd_fuzz into a folder: dsd_fuzz_seeds FOLDER.
#include <fmt/format.h>

#include <filesystem>

#include "support/DSDFixture.h"

int main(int argc, char** argv) {
  using namespace velorin;
  if (argc != 2) return 2;
  const std::filesystem::path folder = argv[1];
  std::filesystem::create_directories(folder);
  int number = 0;
  for (const DSDFormat format : {DSDFormat::dsf, DSDFormat::dsdiff}) {
    for (const unsigned channels : {1u, 2u, 6u}) {
      for (const std::uint32_t blockSize : {1u, 600u, 4096u}) {
        auto file = test::dsdFile(test::oneBitNoise(channels, 1500),
                                  {.format = format, .hasTrailer = true, .blockSize = blockSize});
        // What steers the reads comes first.
        for (std::uint8_t i = 0; i < 9; ++i) file.insert(file.begin(), std::byte(i * 29 + number));
        test::writeFile(folder / fmt::format("{}", number++), file);
      }
    }
  }
  return 0;
}
