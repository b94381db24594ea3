#include "PlayList.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <map>
#include <set>
#include <system_error>
#include <utility>

#include "PlaylistFile.h"
#include "engine/decoders/DecoderFactory.h"
#include "foundation/Text.h"
#include "library/cue/ExternalTracks.h"
#include "library/playlists/M3UManager.h"

namespace velorin {
namespace fs = std::filesystem;
namespace {

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

char lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

/// The digits at `at`, without leading zeros; moves `at` behind them.
std::string_view number(std::string_view text, std::size_t& at) {
  while (at < text.size() && text[at] == '0') ++at;
  const std::size_t begin = at;
  while (at < text.size() && isDigit(text[at])) ++at;
  return text.substr(begin, at - begin);
}

/// -1, 0 or 1 by natural order, with numbers that differ in leading zeros taken as equal.
int compareNaturally(std::string_view a, std::string_view b) {
  std::size_t i = 0, j = 0;
  while (i < a.size() && j < b.size()) {
    if (isDigit(a[i]) && isDigit(b[j])) {
      const std::string_view left = number(a, i);
      const std::string_view right = number(b, j);
      if (left.size() != right.size()) return left.size() < right.size() ? -1 : 1;
      if (const int order = left.compare(right); order != 0) return order < 0 ? -1 : 1;
      continue;
    }
    const auto left = static_cast<unsigned char>(lower(a[i++]));
    const auto right = static_cast<unsigned char>(lower(b[j++]));
    if (left != right) return left < right ? -1 : 1;
  }
  return static_cast<int>(j == b.size()) - static_cast<int>(i == a.size());
}

bool isSupported(const std::string& path) {
  return DecoderFactory::isSupportedExtension(text::fileExtension(path));
}

bool isSheet(const fs::path& path) {
  return text::fileExtension(path.native()) == "cue";
}

/// A sheet finds its audio file from the folder that it lies in, which a bare name does not tell.
std::vector<PlayListEntry> entriesOfSheet(const fs::path& sheet) {
  std::error_code unreachable;
  std::vector<PlayListEntry> entries;
  for (TrackInfo& info : trackInfosFromCue(fs::absolute(sheet, unreachable).native())) {
    std::string path = info.track.filePath;
    entries.push_back({std::move(path), std::move(info)});
  }
  return entries;
}

/// Device and number of a file: the same by whatever name.
using FileIdentity = std::pair<dev_t, ino_t>;

std::optional<FileIdentity> identityOf(const fs::path& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return std::nullopt;
  return FileIdentity{status.st_dev, status.st_ino};
}

/// Collects what is to be played below one folder.
class FolderWalk {
 public:
  std::vector<PlayListEntry> entries;

  std::error_code visit(const fs::path& folder) {
    const auto identity = identityOf(folder);
    if (!identity) return {errno, std::generic_category()};
    // A folder that was seen already: a link back up, or the same folder by two links.
    if (!_seen.insert(*identity).second) return {};
    std::error_code error;
    fs::directory_iterator listing(folder, error);
    if (error) return error;
    std::vector<fs::path> paths;
    for (; listing != fs::directory_iterator(); listing.increment(error)) {
      const fs::path name = listing->path().filename();
      if (!name.native().starts_with('.')) paths.push_back(folder / name);
      if (error) break;
    }
    std::sort(paths.begin(), paths.end(), [](const fs::path& a, const fs::path& b) {
      return naturalLess(a.filename().native(), b.filename().native());
    });
    SheetTracks sheets = sheetsAmong(paths);
    for (const fs::path& path : paths) take(path, sheets);
    return {};
  }

 private:
  /// By the sheet's path.
  using SheetTracks = std::map<fs::path, std::vector<PlayListEntry>>;

  SheetTracks sheetsAmong(const std::vector<fs::path>& paths) {
    SheetTracks sheets;
    for (const fs::path& path : paths) {
      std::error_code error;
      if (!isSheet(path) || !fs::is_regular_file(path, error)) continue;
      std::vector<PlayListEntry> tracks = entriesOfSheet(path);
      std::set<FileIdentity> files;
      bool isUsable = true;
      for (const PlayListEntry& track : tracks) {
        const auto file = identityOf(track.path);
        // A second sheet of the same file would play it twice.
        isUsable = isUsable && file && isSupported(track.path) && !_covered.contains(*file);
        if (file) files.insert(*file);
      }
      if (!isUsable) continue;
      _covered.merge(files);
      sheets.emplace(path, std::move(tracks));
    }
    return sheets;
  }

  void take(const fs::path& path, SheetTracks& sheets) {
    if (const auto sheet = sheets.find(path); sheet != sheets.end()) {
      std::move(sheet->second.begin(), sheet->second.end(), std::back_inserter(entries));
      return;
    }
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (fs::is_directory(status)) {
      visit(path);  // a sub-folder that cannot be read is passed over
    } else if (fs::is_regular_file(status) && isSupported(path.native())) {
      const auto file = identityOf(path);
      if (!file || !_covered.contains(*file)) entries.push_back({path.native(), {}});
    }
  }

  std::set<FileIdentity> _seen;     ///< folders
  std::set<FileIdentity> _covered;  ///< files whose tracks a sheet tells
};

/// Turns arguments into entries, one after the other.
class Expansion {
 public:
  void add(const fs::path& input) {
    std::error_code error;
    if (fs::is_directory(input, error)) return addFolder(input);
    if (isPlaylistFile(input.native())) return addPlaylist(input);
    addFile(input);
  }

  PlayList list;

 private:
  void addFolder(const fs::path& folder) {
    FolderWalk walk;
    if (const std::error_code failed = walk.visit(folder)) {
      complain(folder, failed.message() + ": make the folder readable");
    } else if (walk.entries.empty()) {
      complain(folder, "no music in this folder: choose another");
    }
    append(std::move(walk.entries));
  }

  void addFile(const fs::path& file) {
    std::error_code error;
    if (!isSheet(file) || !fs::is_regular_file(file, error)) {
      list.entries.push_back({file.native(), {}});
      return;
    }
    std::vector<PlayListEntry> tracks = entriesOfSheet(file);
    if (tracks.empty()) {
      complain(file, "no tracks: the sheet or its audio file cannot be read; --verbose says why");
    }
    append(std::move(tracks));
  }

  void addPlaylist(const fs::path& file) {
    std::vector<fs::path> files;
    try {
      files = filesOfPlaylist(file);
    } catch (const M3UError& error) {
      return complain(file, fmt::format("{}: choose a playlist that can be read", error.what()));
    }
    if (files.empty()) complain(file, "the playlist names no files: choose another");
    // A list inside a list is left to the decoder, which says what it is not: no endless rounds.
    for (const fs::path& each : files) addFile(each);
  }

  void append(std::vector<PlayListEntry> entries) {
    std::move(entries.begin(), entries.end(), std::back_inserter(list.entries));
  }

  void complain(const fs::path& path, const std::string& problem) {
    list.problems.push_back(fmt::format("{}: {}", text::pathForDisplay(path), problem));
  }
};

}  // namespace

bool naturalLess(std::string_view a, std::string_view b) noexcept {
  const int order = compareNaturally(a, b);
  return order != 0 ? order < 0 : a < b;
}

PlayList expandInputs(const std::vector<fs::path>& inputs) {
  Expansion expansion;
  for (const fs::path& input : inputs) expansion.add(input);
  return std::move(expansion.list);
}

TrackInfo trackOf(const PlayListEntry& entry) {
  return entry.info ? *entry.info : trackInfoFromFile(entry.path);
}

}  // namespace velorin
