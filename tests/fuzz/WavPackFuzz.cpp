// libFuzzer entry: wavpack_fuzz CORPUS_FOLDER (encoded_fuzz_seeds wv fills one).
#include "foundation/Log.h"
#include "fuzz/DecoderDrive.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  velorin::log::setMinimumLevel(velorin::log::Level::error);
  velorin::test::driveDecoder({data, size}, "wv");
  return 0;
}
