#include "library/metadata/AudioProperties.h"

#include <algorithm>
#include <array>
#include <utility>

#include "foundation/Text.h"
#include "foundation/Unicode.h"
#include "library/metadata/SoundReader.h"

namespace velorin {
namespace {

constexpr std::array<std::pair<std::string_view, const char*>, 14> kFormatNames = {{
    {"flac", "FLAC"},
    {"alac", "ALAC"},
    {"m4a", "ALAC"},
    {"dsf", "DSD"},
    {"dff", "DSD"},
    {"aiff", "AIFF"},
    {"aif", "AIFF"},
    {"wav", "WAV"},
    {"mp3", "MP3"},
    {"ape", "APE"},
    {"wv", "WavPack"},
    {"ogg", "OGG"},
    {"opus", "Opus"},
    {"caf", "CAF"},
}};

}  // namespace

Result<AudioProperties, ExtractFailure> readAudioProperties(const std::string& path) {
  const auto file = RegularFile::open(path);
  if (!file) return ExtractFailure{file.error()};
  auto read = readSound(file.value(), path, /*wantsTags=*/false);
  if (!read) return read.error();
  return read.value().sound;
}

std::string formatName(const std::string& path) {
  const std::string extension = text::fileExtension(path);
  const auto known =
      std::ranges::find(kFormatNames, extension, [](const auto& entry) { return entry.first; });
  if (known != kFormatNames.end()) return known->second;
  std::string upper = text::toValidUTF8(extension);
  std::ranges::transform(upper, upper.begin(), [](char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c;
  });
  return upper;
}

}  // namespace velorin
