#include "PlaylistFile.h"

#include <system_error>

#include "foundation/Text.h"
#include "library/playlists/M3UManager.h"

namespace velorin {
namespace fs = std::filesystem;
namespace {

fs::path meantBy(const M3UManager::ParsedEntry& line) {
  std::error_code error;
  if (fs::exists(line.path, error)) return line.path;
  for (const std::string& other : line.otherPaths) {
    if (fs::exists(other, error)) return other;
  }
  return line.path;
}

}  // namespace

bool isPlaylistFile(std::string_view path) {
  const std::string extension = text::fileExtension(path);
  return extension == "m3u" || extension == "m3u8";
}

std::vector<fs::path> filesOfPlaylist(const fs::path& file) {
  std::vector<fs::path> files;
  for (const auto& line : M3UManager::parse(file.native())) files.push_back(meantBy(line));
  return files;
}

}  // namespace velorin
