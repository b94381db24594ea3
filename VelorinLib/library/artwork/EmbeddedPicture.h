// The cover inside an audio file.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace velorin {

/// The bytes of the first picture in the file's tags, as they are; nothing when there is none or
/// the file cannot be read. By the file's extension: FLAC, ID3 in MP3, AIFF, WAVE and DSF, MP4,
/// Vorbis comments in Ogg, and APE tags in Monkey's Audio and WavPack. No more than 64 MB of a file
/// are read, and more than 8 MB of one file at a time. Never blocks on a pipe or a device. Any
/// thread; blocks for the disk.
std::optional<std::vector<std::uint8_t>> readEmbeddedPicture(const std::string& path);

}  // namespace velorin
