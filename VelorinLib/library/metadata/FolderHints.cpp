#include "library/metadata/FolderHints.h"

#include <algorithm>

#include "foundation/Log.h"
#include "foundation/Text.h"
#include "library/metadata/FileName.h"
#include "library/metadata/NameText.h"
#include "library/metadata/TagText.h"

namespace velorin {
namespace {

/// The two folders above a file, as far as their names may be used.
struct FolderNames {
  std::optional<std::string> album;
  std::optional<std::string> artist;
};

std::string_view withoutTrailingSlashes(std::string_view path) {
  while (path.size() > 1 && path.ends_with('/')) path.remove_suffix(1);
  return path;
}

/// The name of a folder; nothing for a watched root, for "/" and for none at all.
std::optional<std::string> usableName(std::string_view folder,
                                      const std::vector<std::string>& watchedRoots) {
  const bool isRoot = std::ranges::any_of(
      watchedRoots, [&](const auto& root) { return withoutTrailingSlashes(root) == folder; });
  const std::string_view name = fileName(folder);
  if (isRoot || name.empty()) return std::nullopt;
  return std::string(name);
}

FolderNames folderNames(const std::string& path, const std::vector<std::string>& watchedRoots) {
  FolderNames names;
  const std::string_view albumFolder = parentFolder(path);
  names.album = usableName(albumFolder, watchedRoots);
  if (names.album) names.artist = usableName(parentFolder(albumFolder), watchedRoots);
  return names;
}

FolderHints hintsOf(const FolderNames& names) {
  return names.album ? parseFolderName(*names.album, names.artist) : FolderHints{};
}

bool artistIsUnknown(const ScannedItem& item) {
  return item.artistName == kUnknownArtist;
}
bool albumIsUnknown(const ScannedItem& item) {
  return item.albumTitle == kUnknownAlbum;
}

/// "Artist - Title" as the name of a file without a title of its own.
bool applyFileName(ScannedItem& item, const std::string& stem) {
  if (item.track.title != stem) return false;
  FolderHints hints = parseFolderName(stem);
  if (!hints.artist || !hints.album) return false;
  item.track.title = *hints.album;
  if (artistIsUnknown(item)) item.artistName = *hints.artist;
  if (albumIsUnknown(item)) item.albumTitle = *hints.album;
  if (!item.year) item.year = hints.year;
  return true;
}

bool applyFolders(ScannedItem& item, const FolderNames& names) {
  if (!artistIsUnknown(item) && !albumIsUnknown(item) && item.year) return false;
  const FolderHints hints = hintsOf(names);
  const bool givesArtist = hints.artist && artistIsUnknown(item);
  const bool givesAlbum = hints.album && albumIsUnknown(item);
  const bool givesYear = hints.year && !item.year;
  if (givesArtist) item.artistName = *hints.artist;
  if (givesAlbum) item.albumTitle = *hints.album;
  if (givesYear) item.year = hints.year;
  return givesArtist || givesAlbum || givesYear;
}

bool applyEdition(ScannedItem& item, const FolderNames& names) {
  std::optional<std::string> edition;
  if (names.album) edition = editionHint(*names.album, item.albumTitle);
  if (!edition && names.artist) edition = editionHint(*names.artist, item.albumTitle);
  if (!edition) return false;
  item.albumTitle += fmt::format(" [{}]", *edition);
  return true;
}

}  // namespace

FolderHints parseFolderName(std::string_view folder, const std::optional<std::string>& parent) {
  using namespace nametext;
  const std::string cleaned = stripTechnicalTags(folder);
  FolderHints hints;
  const auto setAlbum = [&hints](std::string_view title) {
    if (!title.empty()) hints.album = std::string(title);
  };
  if (const auto separator = findSeparator(cleaned)) {
    const std::string_view whole = cleaned;
    const auto left = text::trimWhitespaceAndNewlines(whole.substr(0, *separator));
    const auto right = text::trimWhitespaceAndNewlines(whole.substr(*separator + 3));
    if (const auto year = parseYearField(left)) {
      hints.year = year;
      setAlbum(extractYear(right).text);
    } else if (!left.empty() && !isNumber(left)) {
      const TextAndYear album = extractYear(right);
      hints.year = album.year;
      setAlbum(album.text);
      hints.artist = std::string(left);
    }
  } else {
    const TextAndYear album = extractYear(cleaned);
    hints.year = album.year;
    setAlbum(album.text);
  }
  if (parent) {
    std::string artist = stripTechnicalTags(*parent);
    hints.artist.reset();
    if (!artist.empty() && !parseYearField(artist)) hints.artist = std::move(artist);
  }
  return hints;
}

FolderHints folderHints(const std::string& path, const std::vector<std::string>& watchedRoots) {
  return hintsOf(folderNames(path, watchedRoots));
}

void applyFolderHints(ScannedItem& item, const std::string& path,
                      const std::vector<std::string>& watchedRoots) {
  const FolderNames names = folderNames(path, watchedRoots);
  bool changed = applyFileName(item, text::toValidUTF8(fileStem(path)));
  changed |= applyFolders(item, names);
  changed |= applyEdition(item, names);
  if (!changed) return;
  log::line("📁 Folder hints applied to {}: artist='{}' album='{}' year={}", fileName(path),
            item.artistName, item.albumTitle, item.year ? std::to_string(*item.year) : "nil");
}

}  // namespace velorin
