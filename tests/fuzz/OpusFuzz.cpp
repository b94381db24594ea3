// libFuzzer entry: opus_fuzz CORPUS_FOLDER (encoded_fuzz_seeds opus fills one), with
// LSAN_OPTIONS=suppressions=tests/support/lsan.supp for what opusfile itself loses.
#include "foundation/Log.h"
#include "fuzz/DecoderDrive.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  velorin::log::setMinimumLevel(velorin::log::Level::error);
  velorin::test::driveDecoder({data, size}, "opus");
  return 0;
}
