#include "library/cue/ExternalTracks.h"

#include <algorithm>
#include <charconv>
#include <optional>

#include "foundation/Log.h"
#include "foundation/Text.h"
#include "library/artwork/FolderArtwork.h"
#include "library/cue/CueAudio.h"
#include "library/cue/CueText.h"
#include "library/cue/CueTracks.h"
#include "library/metadata/FileName.h"
#include "library/metadata/MetadataExtractor.h"
#include "library/metadata/TagText.h"

namespace velorin {
namespace {

TrackInfo externalInfo(ScannedItem item) {
  TrackInfo info;
  info.isExternal = true;
  info.artist = {.id = kExternalId, .name = std::move(item.artistName)};
  info.album = {.id = kExternalId,
                .title = std::move(item.albumTitle),
                .artistId = kExternalId,
                .year = item.year,
                .artworkPath = std::move(item.artworkPath),
                .genre = std::move(item.albumGenre),
                .worstFormat = item.track.format,
                .accentColorHex = {}};
  info.track = std::move(item.track);
  info.track.albumId = kExternalId;
  info.track.artistId = kExternalId;
  return info;
}

ScannedItem itemByName(const std::string& path) {
  ScannedItem item;
  item.artistName = kUnknownArtist;
  item.albumTitle = kUnknownAlbum;
  item.track.title = text::toValidUTF8(fileStem(path));
  item.track.filePath = path;
  std::string format = text::toValidUTF8(text::fileExtension(path));
  std::transform(format.begin(), format.end(), format.begin(),
                 [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; });
  item.track.format = std::move(format);
  return item;
}

/// One track of a sheet that names several files.
struct CueEntry {
  std::vector<std::string> fileName;  ///< its spellings
  std::optional<int> trackNum;
  std::optional<std::string> title;
  std::optional<std::string> performer;
};

struct CueEntries {
  std::optional<std::string> title;
  std::optional<std::string> performer;
  std::vector<CueEntry> entries;
};

std::optional<int> numberOf(const std::string& text) {
  int number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

/// The second word of a line, quoted or not.
std::string secondWord(std::string_view line) {
  const std::size_t from = std::min(line.find_first_not_of(' ', line.find(' ')), line.size());
  return std::string(line.substr(from, line.find(' ', from) - from));
}

CueEntries entriesOf(const CueText& sheet) {
  CueEntries result;
  std::size_t files = 0;
  for (const std::string_view line : trimmedLines(sheet.text)) {
    CueEntry* entry = result.entries.empty() ? nullptr : &result.entries.back();
    if (isCommand(line, "FILE")) {
      ++files;
    } else if (isCommand(line, "TRACK")) {
      CueEntry& next = result.entries.emplace_back();
      if (files > 0) next.fileName = sheet.fileNames[files - 1];
      next.trackNum = numberOf(secondWord(line));
    } else if (isCommand(line, "TITLE")) {
      (entry ? entry->title : result.title) = cleanTag(std::string_view(argumentOf(line)));
    } else if (isCommand(line, "PERFORMER")) {
      (entry ? entry->performer : result.performer) = cleanTag(std::string_view(argumentOf(line)));
    }
  }
  return result;
}

std::vector<TrackInfo> severalFiles(const CueText& sheet, const std::string& folder) {
  const CueEntries album = entriesOf(sheet);
  std::vector<TrackInfo> infos;
  for (const CueEntry& entry : album.entries) {
    const auto audio = locateAudio(entry.fileName, folder);
    if (!audio) continue;
    TrackInfo& info = infos.emplace_back(trackInfoFromFile(*audio));
    if (entry.title) info.track.title = *entry.title;
    if (entry.trackNum) info.track.trackNumber = entry.trackNum;
    if (entry.performer || album.performer) {
      info.artist.name = entry.performer ? *entry.performer : *album.performer;
    }
    if (album.title) info.album.title = *album.title;
  }
  log::line("🎵 Ad-hoc multi-FILE CUE → {} tracks", infos.size());
  return infos;
}

std::vector<TrackInfo> oneFile(const CueText& text, const std::string& sheetPath) {
  auto source = sourceOf(text, sheetPath);
  if (!source) {
    log::line("{}", source.error().logLine);
    return {};
  }
  auto items = itemsOf(std::move(source).value(), {}, findArtwork);
  if (!items) {
    log::line("{}", items.error().logLine);
    return {};
  }
  std::vector<TrackInfo> infos;
  for (ScannedItem& item : items.value()) infos.push_back(externalInfo(std::move(item)));
  log::line("🎵 Ad-hoc CUE: {} tracks from {}", infos.size(), fileName(sheetPath));
  return infos;
}

}  // namespace

TrackInfo trackInfoFromFile(const std::string& path) {
  auto item = MetadataExtractor().extract(path, {}, findArtwork);
  return externalInfo(item ? std::move(item).value() : itemByName(path));
}

std::vector<TrackInfo> trackInfosFromCue(const std::string& sheetPath) {
  const auto sheet = readCueText(sheetPath);
  if (!sheet) {
    log::line("⚠️ Cannot read CUE file: {}", fileName(sheetPath));
    return {};
  }
  const bool isOfSeveral = sheet.value().fileNames.size() > 1;
  return isOfSeveral ? severalFiles(sheet.value(), std::string(parentFolder(sheetPath)))
                     : oneFile(sheet.value(), sheetPath);
}

}  // namespace velorin
