#include "library/playlists/M3UManager.h"

#include <filesystem>

#include "foundation/Text.h"
#include "library/metadata/FileName.h"
#include "library/queries/Playlists.h"
#include "platform/files/RegularFile.h"

namespace velorin {
namespace {

/// A list of a million long paths; what is larger is no playlist.
constexpr std::uint64_t kLargestFile = 256 << 20;

std::string bytesOf(const std::string& path) {
  const auto unreadable = [](std::string reason) {
    return M3UError(M3UError::Code::unreadable, std::move(reason));
  };
  const auto file = RegularFile::open(path);
  if (!file) throw unreadable(file.error());
  if (file.value().size() > kLargestFile) throw unreadable("it is too large for a playlist");
  std::string bytes(static_cast<std::size_t>(file.value().size()), '\0');
  const std::size_t got = file.value().read(0, std::as_writable_bytes(std::span<char>(bytes)));
  if (got < bytes.size()) throw unreadable("it cannot be read to its end");
  return bytes;
}

}  // namespace

M3UError::M3UError(Code c, std::string text) : VelorinDatabaseError(std::move(text)), code(c) {}

std::vector<M3UManager::ParsedEntry> M3UManager::parse(const std::string& file) {
  std::error_code unreachable;
  const std::string absolute = std::filesystem::absolute(file, unreachable).native();
  return parse(bytesOf(file), text::fileExtension(file) == "m3u8",
               std::string(parentFolder(absolute)));
}

std::string M3UManager::exportPlaylist(std::int64_t playlistId) const {
  std::vector<ExportTrack> tracks;
  for (TrackInfo& info : Playlists(_database).fetchPlaylistTracks(playlistId)) {
    tracks.push_back({.filePath = std::move(info.track.filePath),
                      .duration = info.track.duration,
                      .artist = std::move(info.artist.name),
                      .title = std::move(info.track.title)});
  }
  return exportText(tracks);
}

}  // namespace velorin
