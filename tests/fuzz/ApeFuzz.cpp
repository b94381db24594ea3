// libFuzzer entry: ape_fuzz CORPUS_FOLDER (media_fuzz_seeds ape fills one).
#include "foundation/Log.h"
#include "fuzz/DecoderDrive.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  velorin::log::setMinimumLevel(velorin::log::Level::error);
  velorin::test::driveDecoder({data, size}, "ape");
  return 0;
}
