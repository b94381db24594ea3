// The tags of a file, whatever kind of tag it is.
#pragma once

#include <map>
#include <optional>
#include <string>

#include "library/metadata/AudioProperties.h"

namespace velorin {

/// The first value of each field as the file holds it, valid UTF-8 without NUL but not cleaned
/// otherwise; empty where the file has none.
struct TagFields {
  std::optional<std::string> title;
  std::optional<std::string> artist;
  std::optional<std::string> album;
  std::optional<int> trackNumber;
  std::optional<int> discNumber;
  std::optional<int> year;
  std::optional<std::string> genre;
  std::optional<std::string> composer;
  std::optional<std::string> conductor;
  std::optional<std::string> comment;
  std::optional<std::string> lyrics;
  std::optional<double> replayGainTrackGain;  ///< dB
  std::optional<double> replayGainAlbumGain;
  std::optional<double> replayGainTrackPeak;  ///< linear, 1.0 is full scale
  std::optional<double> replayGainAlbumPeak;

  bool operator==(const TagFields&) const = default;
};

/// The fields in what a demuxer says of a file, see MediaProperties::tags. Pure.
TagFields fieldsOfContainer(const std::map<std::string, std::string>& tags);

/// What one opening of a file by the tag library gives.
struct TaggedFile {
  TagFields tags;
  /// What the tag library says of the sound; nothing when it could not tell a duration.
  std::optional<AudioProperties> properties;
};

/// Opens the file once for its tags and properties. Empty when it is no file of a kind that the
/// tag library knows. Any thread; blocks for the disk.
std::optional<TaggedFile> readTaggedFile(const std::string& path);

/// The tags alone.
std::optional<TagFields> readTags(const std::string& path);

}  // namespace velorin
