#include "library/metadata/TagReader.h"

#include <taglib/aifffile.h>
#include <taglib/apeproperties.h>
#include <taglib/asfproperties.h>
#include <taglib/flacproperties.h>
#include <taglib/mp4properties.h>
#include <taglib/trueaudioproperties.h>
#include <taglib/wavfile.h>
#include <taglib/wavpackfile.h>

#include <charconv>
#include <cmath>

#include "foundation/Text.h"
#include "library/metadata/TagAccess.h"
#include "library/metadata/TagStream.h"

namespace velorin {
namespace {

std::optional<std::string> firstText(const TagLib::PropertyMap& map, const char* key) {
  const auto entry = map.find(key);
  if (entry == map.end() || entry->second.isEmpty()) return std::nullopt;
  std::string value = entry->second.front().to8Bit(true);
  value.resize(std::min(value.find('\0'), value.size()));
  return text::validUTF8(value) ? value : text::toValidUTF8(value);
}

/// What can be parsed from the start of the text, as strtol and strtod do but in no locale: "3/12"
/// gives 3, "-6.50 dB" gives -6.5.
template <class Number>
std::optional<Number> leadingNumber(const std::optional<std::string>& value) {
  if (!value) return std::nullopt;
  std::string_view rest = text::trimWhitespaceAndNewlines(*value);
  if (rest.starts_with('+')) rest.remove_prefix(1);
  Number number{};
  const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), number);
  if (error != std::errc()) return std::nullopt;
  return number;
}

/// Numbers of tracks, discs and years begin at 1; 0 is how programs write that there is none.
std::optional<int> firstNumber(const TagLib::PropertyMap& map, const char* key) {
  const auto number = leadingNumber<int>(firstText(map, key));
  return number && *number > 0 ? number : std::nullopt;
}

std::optional<double> firstDouble(const TagLib::PropertyMap& map, const char* key) {
  const auto number = leadingNumber<double>(firstText(map, key));
  return number && std::isfinite(*number) ? number : std::nullopt;
}

TagFields fieldsOf(const TagLib::PropertyMap& map) {
  TagFields fields;
  fields.title = firstText(map, "TITLE");
  fields.artist = firstText(map, "ARTIST");
  fields.album = firstText(map, "ALBUM");
  fields.trackNumber = firstNumber(map, "TRACKNUMBER");
  fields.discNumber = firstNumber(map, "DISCNUMBER");
  fields.year = firstNumber(map, "DATE");
  fields.genre = firstText(map, "GENRE");
  fields.composer = firstText(map, "COMPOSER");
  fields.conductor = firstText(map, "CONDUCTOR");
  fields.comment = firstText(map, "COMMENT");
  fields.lyrics = firstText(map, "LYRICS");
  fields.replayGainTrackGain = firstDouble(map, "REPLAYGAIN_TRACK_GAIN");
  fields.replayGainAlbumGain = firstDouble(map, "REPLAYGAIN_ALBUM_GAIN");
  fields.replayGainTrackPeak = firstDouble(map, "REPLAYGAIN_TRACK_PEAK");
  fields.replayGainAlbumPeak = firstDouble(map, "REPLAYGAIN_ALBUM_PEAK");
  return fields;
}

std::optional<int> ifPositive(int value) {
  return value > 0 ? std::optional(value) : std::nullopt;
}

template <class Properties>
int bitsIfOfKind(const TagLib::AudioProperties& properties) {
  const auto* known = dynamic_cast<const Properties*>(&properties);
  return known ? known->bitsPerSample() : 0;
}

std::optional<int> bitDepthOf(const TagLib::AudioProperties& properties) {
  // Lossy codecs state a word length that means nothing.
  if (const auto* mp4 = dynamic_cast<const TagLib::MP4::Properties*>(&properties)) {
    if (mp4->codec() != TagLib::MP4::Properties::ALAC) return std::nullopt;
    return ifPositive(mp4->bitsPerSample());
  }
  if (const auto* asf = dynamic_cast<const TagLib::ASF::Properties*>(&properties)) {
    if (asf->codec() != TagLib::ASF::Properties::WMA9Lossless) return std::nullopt;
    return ifPositive(asf->bitsPerSample());
  }
  return ifPositive(bitsIfOfKind<TagLib::FLAC::Properties>(properties) +
                    bitsIfOfKind<TagLib::RIFF::WAV::Properties>(properties) +
                    bitsIfOfKind<TagLib::RIFF::AIFF::Properties>(properties) +
                    bitsIfOfKind<TagLib::APE::Properties>(properties) +
                    bitsIfOfKind<TagLib::WavPack::Properties>(properties) +
                    bitsIfOfKind<TagLib::TrueAudio::Properties>(properties));
}

std::optional<AudioProperties> propertiesOf(const TagLib::AudioProperties* properties) {
  if (!properties || properties->lengthInMilliseconds() <= 0) return std::nullopt;
  AudioProperties result;
  result.duration = properties->lengthInMilliseconds() / 1000.0;
  result.sampleRate = ifPositive(properties->sampleRate());
  result.channels = ifPositive(properties->channels());
  result.bitDepth = bitDepthOf(*properties);
  constexpr int kMostKilobits = 2'000'000;
  if (properties->bitrate() <= kMostKilobits) {
    result.bitRate = ifPositive(properties->bitrate() * 1000);
  }
  return result;
}

std::optional<TaggedFile> readFileOf(const std::string& path, bool withProperties) {
  auto file = RegularFile::open(path);
  if (!file) return std::nullopt;
  // The tag library is given foreign bytes: what it throws over them is as good as no tags.
  try {
    TagStream stream(std::move(file).value(), path);
    const TagLib::FileRef reference = openTags(stream, withProperties);
    if (!isOpen(reference)) return std::nullopt;
    TaggedFile result;
    result.tags = fieldsOf(tagProperties(*reference.file()));
    if (withProperties) result.properties = propertiesOf(reference.audioProperties());
    return result;
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

}  // namespace

std::optional<TaggedFile> readTaggedFile(const std::string& path) {
  return readFileOf(path, true);
}

std::optional<TagFields> readTags(const std::string& path) {
  auto file = readFileOf(path, false);
  if (!file) return std::nullopt;
  return std::move(file->tags);
}

}  // namespace velorin
