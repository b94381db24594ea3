#include <fmt/chrono.h>
#include <fmt/format.h>

#include <cstdio>
#include <ctime>

#include "Commands.h"
#include "Console.h"
#include "LibraryJson.h"
#include "LibraryText.h"
#include "TextTable.h"
#include "foundation/Text.h"
#include "library/queries/HomeStatistics.h"
#include "library/queries/MusicFolders.h"
#include "library/queries/TrackListings.h"

namespace velorin {
namespace {

struct FolderState {
  std::string path;
  std::int64_t tracks = 0;
  std::optional<sqlite::TimePoint> lastScanned;
  bool isThere = false;
};

struct LibraryState {
  std::filesystem::path file;
  LibraryCounts counts;
  HomeStats stats;
  std::vector<FolderState> folders;
};

LibraryState readState() {
  const auto queue = openDefaultLibrary();
  const DatabaseHandle database(queue);
  const MusicFolders folders(database);
  LibraryState state{.file = queue->file(),
                     .counts = TrackListings(database).counts(),
                     .stats = HomeStatistics(database).fetchHomeStats(),
                     .folders = {}};
  const auto trackCounts = folders.folderTrackCounts();
  for (const std::string& path : folders.getFolders()) {
    const auto tracks = trackCounts.find(path);
    std::error_code unreachable;
    state.folders.push_back({.path = path,
                             .tracks = tracks == trackCounts.end() ? 0 : tracks->second,
                             .lastScanned = folders.getLastScanned(path),
                             .isThere = std::filesystem::is_directory(path, unreachable)});
  }
  return state;
}

void printJson(const LibraryState& state) {
  std::vector<JsonObject> formats;
  for (const LabelledCount& each : state.stats.formatCounts) {
    formats.emplace_back().add("format", each.label).add("trackCount", each.count);
  }
  std::vector<JsonObject> folders;
  for (const FolderState& folder : state.folders) {
    JsonObject& object = folders.emplace_back();
    object.add("path", folder.path).add("trackCount", folder.tracks);
    if (folder.lastScanned) {
      object.add("lastScanned", jsonMoment(*folder.lastScanned));
    } else {
      object.addNull("lastScanned");
    }
    object.add("available", folder.isThere);
  }
  JsonObject object;
  object.add("file", state.file.native())
      .add("trackCount", state.counts.tracks)
      .add("albumCount", state.counts.albums)
      .add("artistCount", state.counts.artists)
      .add("totalDuration", state.stats.totalDuration)
      .add("totalSize", state.stats.totalSize)
      .add("formats", formats)
      .add("folders", folders);
  fmt::print("{}\n", object.line());
}

std::string scanText(const FolderState& folder) {
  if (!folder.lastScanned) return folder.tracks == 0 ? "never scanned" : "needs a full scan";
  const std::time_t seconds = sqlite::TimePoint::clock::to_time_t(*folder.lastScanned);
  std::tm local{};
  ::localtime_r(&seconds, &local);
  return fmt::format("scanned {:%Y-%m-%d %H:%M}", local);
}

void print(const LibraryState& state) {
  fmt::print("{}\n", text::pathForDisplay(state.file));
  fmt::print("  {} of {} by {}\n", countText(state.counts.tracks, "track"),
             countText(state.counts.albums, "album"), countText(state.counts.artists, "artist"));
  fmt::print("  {}, {}\n", longDurationText(state.stats.totalDuration),
             sizeText(state.stats.totalSize));
  if (state.folders.empty()) {
    fmt::print("no folder has been added yet\n");
    return;
  }
  fmt::print("\n");
  TextTable table({{.cut = TextColumn::Cut::atStart, .least = 20}, {.alignRight = true}, {}, {}});
  for (const FolderState& folder : state.folders) {
    table.addRow({text::pathForDisplay(folder.path), countText(folder.tracks, "track"),
                  scanText(folder), folder.isThere ? "" : "not there now"});
  }
  for (const std::string& line : table.lines(outputColumns())) fmt::print("{}\n", line);
}

}  // namespace

int runLibraryList(const LibraryListOptions& options) {
  try {
    const LibraryState state = readState();
    if (options.json) {
      printJson(state);
    } else {
      print(state);
    }
  } catch (const VelorinDatabaseError& error) {
    reportError(error.message);
    return kExitFailure;
  }
  return finishOutput();
}

}  // namespace velorin
