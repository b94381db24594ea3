// Writes the seed corpus: flac_fuzz_seeds FOLDER
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "fuzz/FlacDrive.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fputs("usage: flac_fuzz_seeds FOLDER\n", stderr);
    return 2;
  }
  const std::filesystem::path folder = argv[1];
  std::filesystem::create_directories(folder);
  for (const auto& seed : velorin::test::flacSeeds()) {
    std::ofstream file(folder / seed.name, std::ios::binary);
    file.write(reinterpret_cast<const char*>(seed.input.data()),
               static_cast<std::streamsize>(seed.input.size()));
    if (!file.good()) {
      std::fprintf(stderr, "cannot write %s\n", (folder / seed.name).c_str());
      return 1;
    }
  }
  return 0;
}
