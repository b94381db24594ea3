// libFuzzer entry: opus_fuzz CORPUS_FOLDER (encoded_fuzz_seeds opus fills one).
#include "fuzz/DecoderDrive.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  velorin::test::driveDecoder({data, size}, "opus");
  return 0;
}
