// Writes the seed corpus of a decoder's fuzzer: encoded_fuzz_seeds opus|wv FOLDER
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "fuzz/DecoderDrive.h"

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fputs("usage: encoded_fuzz_seeds opus|wv FOLDER\n", stderr);
    return 2;
  }
  const std::filesystem::path folder = argv[2];
  std::filesystem::create_directories(folder);
  for (const auto& seed : velorin::test::encodedSeeds(argv[1])) {
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
