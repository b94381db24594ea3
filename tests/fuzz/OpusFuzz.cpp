// libFuzzer entry: opus_fuzz -detect_leaks=0 CORPUS_FOLDER (encoded_fuzz_seeds opus fills one).
// opusfile 0.12 itself loses the tags of some links that it refuses, a few hundred bytes.
#include "foundation/Log.h"
#include "fuzz/DecoderDrive.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  velorin::log::setMinimumLevel(velorin::log::Level::error);
  velorin::test::driveDecoder({data, size}, "opus");
  return 0;
}
