#include "FileFacts.h"

#include <FLAC/metadata.h>
#include <fmt/format.h>

#include <charconv>
#include <cmath>

#include <algorithm>
#include <memory>
#include <string_view>
#include <system_error>

#include "engine/decoders/DecoderFactory.h"
#include "foundation/Text.h"

namespace velorin {
namespace fs = std::filesystem;
namespace {

struct DeleteBlock {
  void operator()(FLAC__StreamMetadata* block) const { FLAC__metadata_object_delete(block); }
};
using Block = std::unique_ptr<FLAC__StreamMetadata, DeleteBlock>;

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

std::optional<double>* replayGainField(FileFacts& facts, std::string_view name) {
  return name == "replaygain_track_gain"   ? &facts.trackGain
         : name == "replaygain_album_gain" ? &facts.albumGain
         : name == "replaygain_track_peak" ? &facts.trackPeak
         : name == "replaygain_album_peak" ? &facts.albumPeak
                                           : nullptr;
}

/// The number that a tag such as "-7.25 dB" begins with.
std::optional<double> leadingNumber(std::string_view text) {
  text = text::trimWhitespaceAndNewlines(text);
  if (text.starts_with('+')) text.remove_prefix(1);
  double value = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
  if (result.ec != std::errc() || !std::isfinite(value)) return std::nullopt;
  return value;
}

void readFlacTags(const fs::path& path, FileFacts& facts) {
  FLAC__StreamMetadata* raw = nullptr;
  if (!FLAC__metadata_get_tags(path.c_str(), &raw)) return;
  const Block tags(raw);
  const auto& comments = tags->data.vorbis_comment;
  for (std::uint32_t i = 0; i < comments.num_comments; ++i) {
    const auto& entry = comments.comments[i];
    const std::string_view comment(reinterpret_cast<const char*>(entry.entry), entry.length);
    const std::size_t equals = comment.find('=');
    if (equals == std::string_view::npos) continue;
    const std::string name = text::lowercaseASCII(comment.substr(0, equals));
    if (std::optional<double>* const number = replayGainField(facts, name)) {
      if (!*number) *number = leadingNumber(comment.substr(equals + 1));
      continue;
    }
    std::string* const field = name == "title"         ? &facts.title
                               : name == "artist"      ? &facts.artist
                               : name == "album"       ? &facts.album
                               : name == "tracknumber" ? &facts.trackNumber
                                                       : nullptr;
    // The first of several stands.
    if (field != nullptr && field->empty()) {
      *field = text::toValidUTF8(text::trimWhitespaceAndNewlines(comment.substr(equals + 1)));
    }
  }
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
  facts.md5 = flacMD5(path);
  readFlacTags(path, facts);
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
