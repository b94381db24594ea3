// libFuzzer entry: fuzz_flac CORPUS_FOLDER (fill the folder with fuzz_flac_seeds first).
#include "fuzz/FlacDrive.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  velorin::test::driveFlac({data, size});
  return 0;
}
