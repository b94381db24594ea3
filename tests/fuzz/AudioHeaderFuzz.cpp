// Any bytes may stand where a music file begins; what a reader makes of them can be.
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "library/metadata/AacConfig.h"
#include "library/metadata/ApeHeader.h"
#include "library/metadata/BitDepth.h"
#include "library/metadata/DsdHeader.h"
#include "library/metadata/FlacHeader.h"
#include "library/metadata/WavPackHeader.h"

namespace {

using namespace velorin;

void check(const AudioProperties& properties) {
  const bool makesSense = std::isfinite(properties.duration) && properties.duration >= 0 &&
                          properties.sampleRate.value_or(1) > 0 &&
                          properties.channels.value_or(1) > 0;
  if (!makesSense) std::abort();
}

HeaderBytes upTo(std::size_t most, HeaderBytes file) {
  return file.first(std::min(most, file.size()));
}

void checkDsd(const Result<DsdHeader, DsdFault>& parsed) {
  if (parsed) check(parsed.value().properties());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  const HeaderBytes file = std::as_bytes(std::span(data, size));
  const auto flac = parseFlacHeader(upTo(kFlacHeadBytes, file));
  if (flac) check(flac.value());
  const auto ape = parseApeHeader(upTo(kApeHeadBytes, file));
  if (ape) check(ape.value());
  const auto wavPack = parseWavPackHeader(upTo(kWavPackHeadBytes, file));
  if (wavPack) check(wavPack.value().properties);
  if (wavPackLength(file.last(std::min(kWavPackTailBytes, size))) == 0U) std::abort();
  checkDsd(parseDsfHeader(upTo(kDsfHeadBytes, file)));
  const ReadAt read = [file](std::uint64_t offset, std::span<std::byte> into) {
    if (offset >= file.size()) return std::size_t{0};
    const HeaderBytes rest = upTo(into.size(), file.subspan(offset));
    std::memcpy(into.data(), rest.data(), rest.size());
    return rest.size();
  };
  checkDsd(parseDffHeader(read));
  if (aacChannels(read).value_or(1) <= 0) std::abort();
  if (detectBitDepth(upTo(kBitDepthHeadBytes, file)).value_or(0) < 0) std::abort();
  return 0;
}
