// A folder of music files in any number: real FLAC, MP3 and M4A files of a moment's sound, each
// with tags of its own.
#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>

namespace velorin::test {

/// Writes so many files below the folder, the same each time: a folder for each album, of the
/// formats and with the names that SyntheticLibrary has. The sound is encoded once for each format
/// by the ffmpeg program, the tags are written by hand, so that it takes little more than writing
/// the bytes. Throws std::runtime_error. `progress` hears the number of files so far.
void writeMusicTree(std::size_t files, const std::filesystem::path& folder,
                    const std::function<void(std::size_t)>& progress = {});

}  // namespace velorin::test
