#include "platform/desktop/MprisMetadata.h"

#include <sdbus-c++/Types.h>
#include <sys/stat.h>

#include <charconv>

#include "foundation/Text.h"
#include "platform/desktop/FileUri.h"

namespace velorin {
namespace {

constexpr std::string_view kTrackPrefix = "/com/velorin/track/";
constexpr std::size_t kLongestText = 4096;

using Metadata = std::map<std::string, sdbus::Variant>;

void put(Metadata& metadata, const char* key, const std::string& text) {
  if (!text.empty()) metadata[key] = sdbus::Variant(busText(text));
}

// For the fields that the standard makes lists.
void putList(Metadata& metadata, const char* key, const std::string& text) {
  if (!text.empty()) metadata[key] = sdbus::Variant(std::vector<std::string>{busText(text)});
}

void put(Metadata& metadata, const char* key, std::optional<int> number) {
  if (number) metadata[key] = sdbus::Variant(std::int32_t{*number});
}

bool isFileThere(const std::string& path) {
  struct stat about {};
  return !path.empty() && ::stat(path.c_str(), &about) == 0 && S_ISREG(about.st_mode) &&
         about.st_size > 0;
}

}  // namespace

std::string trackPath(MprisTrackId id) {
  return fmt::format("{}{}", kTrackPrefix, id);
}

std::optional<MprisTrackId> trackOfPath(std::string_view path) {
  if (!path.starts_with(kTrackPrefix)) return std::nullopt;
  path.remove_prefix(kTrackPrefix.size());
  MprisTrackId id = 0;
  const auto [end, error] = std::from_chars(path.data(), path.data() + path.size(), id);
  if (error != std::errc() || end != path.data() + path.size()) return std::nullopt;
  return id;
}

std::string busText(std::string_view text) {
  std::string valid = text::toValidUTF8(text);
  std::erase(valid, '\0');
  if (valid.size() > kLongestText) {
    // Back to where a character begins.
    std::size_t end = kLongestText;
    while ((static_cast<unsigned char>(valid[end]) & 0xC0) == 0x80) --end;
    valid.resize(end);
  }
  return valid;
}

Metadata metadataOf(const MprisTrack& track) {
  Metadata metadata;
  metadata["mpris:trackid"] = sdbus::Variant(sdbus::ObjectPath(trackPath(track.id)));
  if (track.length > 0) metadata["mpris:length"] = sdbus::Variant(track.length);
  if (isFileThere(track.coverPath)) {
    metadata["mpris:artUrl"] = sdbus::Variant(fileUri(track.coverPath));
  }
  put(metadata, "xesam:title", track.title);
  putList(metadata, "xesam:artist", track.artist);
  put(metadata, "xesam:album", track.album);
  putList(metadata, "xesam:albumArtist", track.albumArtist);
  putList(metadata, "xesam:composer", track.composer);
  putList(metadata, "xesam:genre", track.genre);
  putList(metadata, "xesam:comment", track.comment);
  put(metadata, "xesam:trackNumber", track.trackNumber);
  put(metadata, "xesam:discNumber", track.discNumber);
  put(metadata, "xesam:useCount", track.useCount);
  if (track.userRating) metadata["xesam:userRating"] = sdbus::Variant(*track.userRating);
  // ISO 8601 allows a year alone.
  if (track.year && *track.year > 0 && *track.year <= 9999) {
    put(metadata, "xesam:contentCreated", fmt::format("{:04}", *track.year));
  }
  if (track.filePath.starts_with('/'))
    metadata["xesam:url"] = sdbus::Variant(fileUri(track.filePath));
  return metadata;
}

Metadata metadataOfNoTrack() {
  return {{"mpris:trackid", sdbus::Variant(sdbus::ObjectPath(kNoTrackPath))}};
}

}  // namespace velorin
