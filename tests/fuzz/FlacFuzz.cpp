// libFuzzer entry: flac_fuzz CORPUS_FOLDER (flac_fuzz_seeds fills one).
#include "fuzz/FlacDrive.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  velorin::test::driveFlac({data, size});
  return 0;
}
