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

/// Text as the library keeps it, up to its first NUL.
std::string validText(std::string value) {
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
std::optional<int> ordinal(const std::optional<std::string>& value) {
  const auto number = leadingNumber<int>(value);
  return number && *number > 0 ? number : std::nullopt;
}

std::optional<double> finite(const std::optional<std::string>& value) {
  const auto number = leadingNumber<double>(value);
  return number && std::isfinite(*number) ? number : std::nullopt;
}

/// valueOf: the first value of a key of the tag library, nothing where there is none.
template <class ValueOf>
TagFields fieldsOf(const ValueOf& valueOf) {
  TagFields fields;
  fields.title = valueOf("TITLE");
  fields.artist = valueOf("ARTIST");
  fields.album = valueOf("ALBUM");
  fields.trackNumber = ordinal(valueOf("TRACKNUMBER"));
  fields.discNumber = ordinal(valueOf("DISCNUMBER"));
  fields.year = ordinal(valueOf("DATE"));
  fields.genre = valueOf("GENRE");
  fields.composer = valueOf("COMPOSER");
  fields.conductor = valueOf("CONDUCTOR");
  fields.comment = valueOf("COMMENT");
  fields.lyrics = valueOf("LYRICS");
  fields.replayGainTrackGain = finite(valueOf("REPLAYGAIN_TRACK_GAIN"));
  fields.replayGainAlbumGain = finite(valueOf("REPLAYGAIN_ALBUM_GAIN"));
  fields.replayGainTrackPeak = finite(valueOf("REPLAYGAIN_TRACK_PEAK"));
  fields.replayGainAlbumPeak = finite(valueOf("REPLAYGAIN_ALBUM_PEAK"));
  return fields;
}

TagFields fieldsOfProperties(const TagLib::PropertyMap& map) {
  return fieldsOf([&map](const char* key) -> std::optional<std::string> {
    const auto entry = map.find(key);
    if (entry == map.end() || entry->second.isEmpty()) return std::nullopt;
    return validText(entry->second.front().to8Bit(true));
  });
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
    result.tags = fieldsOfProperties(tagProperties(*reference.file()));
    if (withProperties) result.properties = propertiesOf(reference.audioProperties());
    return result;
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

}  // namespace

TagFields fieldsOfContainer(const std::map<std::string, std::string>& tags) {
  return fieldsOf([&tags](std::string_view key) -> std::optional<std::string> {
    if (key.ends_with("NUMBER")) key.remove_suffix(std::string_view("NUMBER").size());
    const auto entry = tags.find(text::lowercaseASCII(key));
    return entry == tags.end() ? std::nullopt : std::optional(validText(entry->second));
  });
}

std::optional<TaggedFile> readTaggedFile(const std::string& path) {
  return readFileOf(path, true);
}

std::optional<TagFields> readTags(const std::string& path) {
  auto file = readFileOf(path, false);
  if (!file) return std::nullopt;
  return std::move(file->tags);
}

}  // namespace velorin
