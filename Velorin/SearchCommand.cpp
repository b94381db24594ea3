#include <fmt/format.h>

#include <cstdio>

#include "Commands.h"
#include "Console.h"
#include "LibraryJson.h"
#include "LibraryText.h"
#include "Terminal.h"
#include "TextTable.h"
#include "foundation/Text.h"
#include "library/queries/AlbumListings.h"
#include "library/queries/LibrarySearch.h"
#include "library/queries/Playlists.h"
#include "records/TrackDisplay.h"

namespace velorin {
namespace {

using Cut = TextColumn::Cut;

/// Rows of the sections above the tracks.
constexpr std::size_t kSectionRows = 5;

/// A terminal of fewer columns shows each track's path on a line of its own.
constexpr int kWide = 120;

struct Found {
  std::vector<TrackInfo> tracks;
  bool hasMore = false;  ///< tracks behind these
  // With the first page only.
  std::vector<Artist> artists;
  std::vector<AlbumInfo> albums;
  std::vector<Playlist> playlists;

  bool isEmpty() const {
    return tracks.empty() && artists.empty() && albums.empty() && playlists.empty();
  }
};

Found find(const SearchOptions& options) {
  const DatabaseHandle database(openDefaultLibrary());
  LibrarySearch search(database);
  Found found;
  found.tracks = search.searchTracks(options.text, {}, {}, options.limit + 1, options.offset);
  found.hasMore = found.tracks.size() > static_cast<std::size_t>(options.limit);
  if (found.hasMore) found.tracks.pop_back();
  // A name holds the text as it stands; white space alone is no text.
  const std::string name(text::trimWhitespaceAndNewlines(options.text));
  if (options.offset > 0 || name.empty()) return found;
  found.artists = search.searchArtists(name);
  found.albums = AlbumListings(database).searchAlbums(name, AlbumSort{AlbumSortColumn::title, true},
                                                      std::nullopt);
  found.playlists = search.searchPlaylists(name);
  return found;
}

template <class Record>
std::vector<JsonObject> jsonList(const std::vector<Record>& records, std::size_t limit) {
  std::vector<JsonObject> list;
  for (std::size_t i = 0; i < std::min(limit, records.size()); ++i)
    list.push_back(json(records[i]));
  return list;
}

void printJson(const SearchOptions& options, const Found& found) {
  const auto limit = static_cast<std::size_t>(options.limit);
  JsonObject object;
  object.add("text", options.text)
      .add("limit", options.limit)
      .add("offset", options.offset)
      .add("hasMore", found.hasMore)
      .add("artists", jsonList(found.artists, limit))
      .add("albums", jsonList(found.albums, limit))
      .add("playlists", jsonList(found.playlists, limit))
      .add("tracks", jsonList(found.tracks, limit));
  fmt::print("{}\n", object.line());
}

std::string shown(const std::string& text) {
  return text::escapeForTerminal(text);
}

/// A heading and the first few of the records, one row each.
template <class Record, class Row>
void printSection(const char* heading, const std::vector<Record>& records, TextTable table,
                  Row&& row) {
  if (records.empty()) return;
  for (std::size_t i = 0; i < std::min(kSectionRows, records.size()); ++i) {
    table.addRow(row(records[i]));
  }
  fmt::print("{}\n", heading);
  for (const std::string& line : table.lines(outputColumns() - 2)) fmt::print("  {}\n", line);
  if (records.size() > kSectionRows) {
    fmt::print("  … {} more\n",
               groupedText(static_cast<std::int64_t>(records.size() - kSectionRows)));
  }
  fmt::print("\n");
}

void printSections(const Found& found) {
  const TextColumn text{.cut = Cut::atEnd, .least = 12};
  const TextColumn number{.alignRight = true};
  printSection("Artists", found.artists, TextTable({text}),
               [](const Artist& artist) { return std::vector<std::string>{shown(artist.name)}; });
  printSection("Albums", found.albums, TextTable({text, text, number, number, number}),
               [](const AlbumInfo& info) {
                 const int year = info.album.year.value_or(0);
                 return std::vector<std::string>{shown(info.album.title), shown(info.artist.name),
                                                 year == 0 ? "" : std::to_string(year),
                                                 countText(info.trackCount, "track"),
                                                 durationText(info.totalDuration)};
               });
  printSection("Playlists", found.playlists, TextTable({text, {}}), [](const Playlist& playlist) {
    return std::vector<std::string>{shown(playlist.name), playlist.isSmartPlaylist ? "smart" : ""};
  });
}

void printTracks(const SearchOptions& options, const Found& found) {
  if (found.tracks.empty()) return;
  const int columns = outputColumns();
  const bool isWide = columns >= kWide;
  const TextColumn text{.cut = Cut::atEnd, .least = 10};
  const TextColumn number{.alignRight = true};
  TextTable table({text, text, text, number, number, {}, {.cut = Cut::atStart, .least = 20}});
  for (const TrackInfo& info : found.tracks) {
    table.addRow({shown(info.track.title), shown(info.artist.name), shown(info.album.title),
                  yearText(info), durationText(info.track.duration),
                  shown(formatAndQuality(info.track)),
                  isWide ? text::pathForDisplay(info.track.filePath) : ""});
  }
  const auto lines = table.lines(columns - 2);
  fmt::print("Tracks\n");
  for (std::size_t i = 0; i < lines.size(); ++i) {
    fmt::print("  {}\n", lines[i]);
    if (isWide) continue;
    const std::string path = text::pathForDisplay(found.tracks[i].track.filePath);
    fmt::print("    {}\n", terminal::fittedEnd(path, columns - 4));
  }
  if (found.hasMore) {
    fmt::print("  … more with --offset {}\n", options.offset + options.limit);
  }
}

}  // namespace

int runSearch(const SearchOptions& options) {
  try {
    const Found found = find(options);
    if (options.json) {
      printJson(options, found);
    } else if (found.isEmpty()) {
      reportError("nothing found for \"" + options.text + "\"");
    } else {
      printSections(found);
      printTracks(options, found);
    }
  } catch (const VelorinDatabaseError& error) {
    reportError(error.message);
    return kExitFailure;
  }
  return finishOutput();
}

}  // namespace velorin
