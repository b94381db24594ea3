#include "library/cue/CueTracks.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <cerrno>
#include <system_error>

#include "foundation/Text.h"
#include "library/cue/CueAudio.h"
#include "library/cue/CueSheetParser.h"
#include "library/metadata/AudioProperties.h"
#include "library/metadata/FileName.h"
#include "library/metadata/FolderHints.h"
#include "library/metadata/TagReader.h"
#include "library/metadata/TagText.h"

namespace velorin {
namespace {

using Meta = CSMetaKey::Kind;
using Remark = CSRemKey::Kind;
using Text = std::optional<std::string>;

/// The first that holds anything.
template <class... Others>
Text firstOf(const Text& first, const Others&... others) {
  Text result = cleanTag(first);
  ((result = result ? std::move(result) : cleanTag(Text(others))), ...);
  return result;
}

/// What all tracks of the sheet have in common.
ScannedItem albumOf(const CueSource& source) {
  const CueSheet& sheet = source.sheet;
  const TagFields tags = readTags(source.audioPath).value_or(TagFields{});
  ScannedItem album;
  album.albumTitle =
      firstOf(tags.album, valueOf(sheet.meta, Meta::title), valueOf(sheet.rem, Remark::title),
              text::toValidUTF8(fileStem(source.sheetPath)))
          .value_or(kUnknownAlbum);
  album.artistName =
      firstOf(tags.artist, valueOf(sheet.meta, Meta::performer)).value_or(kUnknownArtist);
  album.albumGenre = firstOf(tags.genre, valueOf(sheet.rem, Remark::genre));
  album.year = tags.year;
  if (!album.year) album.year = parseDateYear(valueOf(sheet.rem, Remark::date).value_or(""));
  album.track.composer = firstOf(tags.composer, valueOf(sheet.meta, Meta::songWriter));
  album.track.genre = album.albumGenre;
  album.track.year = album.year;
  return album;
}

std::chrono::system_clock::time_point timeOf(const timespec& moment) {
  using namespace std::chrono;
  return system_clock::time_point(
      duration_cast<system_clock::duration>(seconds(moment.tv_sec) + nanoseconds(moment.tv_nsec)));
}

CueTrouble unreadable(const std::string& audioPath, const std::string& reason) {
  return {fmt::format("its audio file cannot be read: {}", reason),
          fmt::format("⚠️ CUE audio file cannot be read: {}: {}", fileName(audioPath), reason)};
}

}  // namespace

Result<CueSource, CueTrouble> sourceOf(const CueText& text, const std::string& sheetPath) {
  auto sheet = CueSheetParser::parse(text.text);
  if (!sheet) {
    const std::string error = sheet.error().text();
    return CueTrouble{fmt::format("it cannot be parsed: {}", error),
                      fmt::format("⚠️ CUE parse error: {}: {}", fileName(sheetPath), error)};
  }
  if (sheet->file.empty()) {
    return CueTrouble{"it names no audio file", "⚠️ CUE audio file not found: "};
  }
  const std::string& name = sheet->file.front().fileName;
  // The name as the parser understands it, then what else the line can mean.
  std::vector<std::string> spellings = {name};
  if (!text.fileNames.empty()) {
    spellings.insert(spellings.end(), text.fileNames[0].begin(), text.fileNames[0].end());
  }
  auto audio = locateAudio(spellings, std::string(parentFolder(sheetPath)));
  if (!audio) {
    return CueTrouble{fmt::format("its audio file is not there: {}", name),
                      fmt::format("⚠️ CUE audio file not found: {}", name)};
  }
  return CueSource{std::move(sheet).value(), sheetPath, std::move(*audio)};
}

Result<std::vector<ScannedItem>, CueTrouble> itemsOf(CueSource source,
                                                     const std::vector<std::string>& watchedRoots,
                                                     const ArtworkLookup& artwork) {
  struct stat status {};
  if (::stat(source.audioPath.c_str(), &status) != 0) {
    return unreadable(source.audioPath, std::generic_category().message(errno));
  }
  const auto audio = readAudioProperties(source.audioPath);
  if (!audio) return unreadable(source.audioPath, audio.error().reason);
  source.sheet.ownAudioLength = audio.value().duration;

  ScannedItem album = albumOf(source);
  if (artwork) album.artworkPath = artwork(std::string(parentFolder(source.audioPath)));
  Track& file = album.track;
  file.filePath = source.audioPath;
  file.sampleRate = audio.value().sampleRate;
  file.bitDepth = audio.value().bitDepth;
  file.channels = audio.value().channels;
  file.bitRate = audio.value().bitRate;
  file.format = formatName(source.audioPath);
  file.fileSize = status.st_size;
  file.lastModified = timeOf(status.st_mtim);

  std::vector<ScannedItem> items;
  const std::vector<CSTrack>& tracks = source.sheet.file.front().tracks;
  for (std::size_t i = 0; i < tracks.size(); ++i) {
    const CSTrack& track = tracks[i];
    const double start = track.start().seconds();
    const double end =
        i + 1 < tracks.size() ? tracks[i + 1].start().seconds() : *source.sheet.ownAudioLength;
    if (end - start <= 0) continue;
    ScannedItem& item = items.emplace_back(album);
    item.artistName = firstOf(valueOf(track.meta, Meta::performer)).value_or(album.artistName);
    item.track.title =
        firstOf(valueOf(track.meta, Meta::title)).value_or(fmt::format("Track {}", track.trackNum));
    if (auto composer = firstOf(valueOf(track.meta, Meta::songWriter))) {
      item.track.composer = std::move(composer);
    }
    item.track.trackNumber = track.trackNum;
    item.track.duration = end - start;
    item.track.cueStartTime = start;
    item.track.cueEndTime = end;
    applyFolderHints(item, source.audioPath, watchedRoots);
  }
  return items;
}

}  // namespace velorin
