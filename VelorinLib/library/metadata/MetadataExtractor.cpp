#include "library/metadata/MetadataExtractor.h"

#include <sys/stat.h>

#include <cerrno>
#include <system_error>

#include "foundation/Log.h"
#include "foundation/Text.h"
#include "library/metadata/AudioProperties.h"
#include "library/metadata/FileName.h"
#include "library/metadata/FolderHints.h"
#include "library/metadata/SoundReader.h"
#include "library/metadata/TagText.h"
#include "platform/files/RegularFile.h"

namespace velorin {
namespace {

std::chrono::system_clock::time_point timeOf(const timespec& moment) {
  using namespace std::chrono;
  return system_clock::time_point(
      duration_cast<system_clock::duration>(seconds(moment.tv_sec) + nanoseconds(moment.tv_nsec)));
}

/// The view of a file's tags that the library keeps: cleaned, with names where there are none.
ScannedItem itemOf(const TagFields& tags, std::string_view stem) {
  ScannedItem item;
  item.artistName = cleanTag(tags.artist).value_or(kUnknownArtist);
  item.albumTitle = cleanTag(tags.album).value_or(kUnknownAlbum);
  item.year = tags.year;
  item.albumGenre = cleanTag(tags.genre);
  Track& track = item.track;
  const auto title = cleanTag(tags.title);
  track.title = title ? *title : text::toValidUTF8(stem);
  track.trackNumber = tags.trackNumber;
  track.discNumber = tags.discNumber;
  track.year = tags.year;
  track.genre = item.albumGenre;
  track.composer = cleanTag(tags.composer);
  track.conductor = cleanTag(tags.conductor);
  track.comment = cleanTag(tags.comment);
  track.lyrics = cleanTag(tags.lyrics);
  track.replayGainTrackGain = tags.replayGainTrackGain;
  track.replayGainAlbumGain = tags.replayGainAlbumGain;
  track.replayGainTrackPeak = tags.replayGainTrackPeak;
  track.replayGainAlbumPeak = tags.replayGainAlbumPeak;
  return item;
}

void takeSound(const AudioProperties& sound, Track& track) {
  track.duration = sound.duration;
  track.sampleRate = sound.sampleRate;
  track.channels = sound.channels;
  track.bitDepth = sound.bitDepth;
  track.bitRate = sound.bitRate;
}

void logUnknownFlac(const ScannedItem& item, bool hasTags, const std::string& path) {
  if (item.artistName != kUnknownArtist && item.albumTitle != kUnknownAlbum) return;
  log::line("🔍 FLAC tags for {}: TagLib={} artist='{}' album='{}'", fileName(path),
            hasTags ? "ok" : "nil", item.artistName, item.albumTitle);
}

}  // namespace

Result<ScannedItem, ExtractFailure> MetadataExtractor::extract(
    const std::string& path, const std::vector<std::string>& watchedRoots,
    const ArtworkLookup& artwork) const {
  const auto file = RegularFile::open(path);
  if (!file) return ExtractFailure{file.error()};
  struct stat status {};
  if (::fstat(file.value().descriptor(), &status) != 0) {
    return ExtractFailure{std::generic_category().message(errno)};
  }
  auto read = readSound(file.value(), path, /*wantsTags=*/true);
  if (!read) return read.error();

  const std::optional<TagFields>& tags = read.value().tags;
  ScannedItem item = itemOf(tags.value_or(TagFields{}), fileStem(path));
  takeSound(read.value().sound, item.track);
  item.track.filePath = path;
  item.track.format = formatName(path);
  item.track.fileSize = status.st_size;
  item.track.lastModified = timeOf(status.st_mtim);
  if (item.track.format == "FLAC") logUnknownFlac(item, tags.has_value(), path);
  if (artwork) item.artworkPath = artwork(std::string(parentFolder(path)));
  applyFolderHints(item, path, watchedRoots);
  return item;
}

}  // namespace velorin
