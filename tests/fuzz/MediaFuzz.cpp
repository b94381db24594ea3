// libFuzzer entry: media_fuzz CORPUS_FOLDER (media_fuzz_seeds media fills one). What a file is, its
// content tells; the extension that is given matters little.
#include "foundation/Log.h"
#include "fuzz/DecoderDrive.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  velorin::log::setMinimumLevel(velorin::log::Level::error);
  velorin::test::driveDecoder({data, size}, "mp3");
  return 0;
}
