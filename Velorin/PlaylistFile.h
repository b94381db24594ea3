// The files that an M3U playlist names.
#pragma once

#include <filesystem>
#include <string_view>
#include <vector>

namespace velorin {

/// By its extension, "m3u" or "m3u8" in any case. Pure.
bool isPlaylistFile(std::string_view path);

/// One path for each line, the first of its meanings that exists, in the list's order. Throws
/// M3UError where the list cannot be read. Blocks for the disk.
std::vector<std::filesystem::path> filesOfPlaylist(const std::filesystem::path& file);

}  // namespace velorin
