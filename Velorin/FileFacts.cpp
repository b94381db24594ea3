#include "FileFacts.h"

#include <FLAC/metadata.h>
#include <fmt/format.h>

#include <algorithm>
#include <system_error>

#include "engine/decoders/DecoderFactory.h"
#include "engine/dsd/DSDSource.h"
#include "foundation/Text.h"

namespace velorin {
namespace fs = std::filesystem;
namespace {

/// The MD5 of the samples; an encoder that did not compute it leaves zeros.
std::string flacMD5(const fs::path& path) {
  FLAC__StreamMetadata info{};
  if (!FLAC__metadata_get_streaminfo(path.c_str(), &info)) return {};
  const auto& sum = info.data.stream_info.md5sum;
  if (std::all_of(std::begin(sum), std::end(sum), [](auto byte) { return byte == 0; })) return {};
  std::string text;
  for (const auto byte : sum) text += fmt::format("{:02x}", byte);
  return text;
}

Result<FileFacts, FileError> read(const fs::path& path, bool probeEnd) {
  auto opened = DecoderFactory::open(path);
  if (!opened) return FileError{opened.error().text};
  FileDecoder& decoder = *opened.value();
  FileFacts facts;
  facts.path = path;
  facts.format = decoder.info().formatTag.value_or(decoder.info().name);
  facts.sampleRate = static_cast<std::uint32_t>(decoder.sampleRate());
  facts.bitsPerSample = decoder.bitsPerSample();
  facts.channels = decoder.channels();
  facts.totalFrames = static_cast<std::uint64_t>(std::max<std::int64_t>(0, decoder.totalFrames()));
  std::error_code error;
  const auto size = fs::file_size(path, error);
  facts.fileSize = error ? 0 : size;
  if (text::fileExtension(path.native()) == "flac") facts.md5 = flacMD5(path);
  facts.isLossless = decoder.info().isLossless;
  facts.isFloat = decoder.isFloatSource() && decoder.bitsPerSample() > 1;
  if (const DSDSource* const dsd = decoder.dsd()) {
    facts.dsdRate = static_cast<std::uint32_t>(hertz(dsd->dsdRate()));
  }
  if (probeEnd && facts.totalFrames > 0) {
    const auto last = static_cast<std::int64_t>(facts.totalFrames) - 1;
    PlanarBuffers one(facts.channels, 1, sizeof(float));
    if (!decoder.seek(last) || decoder.read(one.list(), 1, /*asFloat=*/true).frames != 1) {
      return FileError{"the file ends before its audio does; copy it again from its source"};
    }
  }
  return facts;
}

}  // namespace

Result<FileFacts, FileError> readFileFacts(const fs::path& path) {
  return read(path, /*probeEnd=*/false);
}

std::string whyUnplayable(const fs::path& path) {
  const auto facts = readFileFacts(path);
  return facts ? "the file cannot be opened any more; was it removed?" : facts.error().text;
}

Result<FileFacts, FileError> readAndProbeFile(const fs::path& path) {
  return read(path, /*probeEnd=*/true);
}

}  // namespace velorin
