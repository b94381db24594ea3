#include <fmt/format.h>

#include <cstdio>
#include <span>

#include "Commands.h"
#include "Console.h"
#include "LibraryJson.h"
#include "LibraryText.h"
#include "OutputFile.h"
#include "StoredPlaylists.h"
#include "TextTable.h"
#include "foundation/AtomicFile.h"
#include "foundation/Log.h"
#include "foundation/Text.h"
#include "library/playlists/M3UManager.h"
#include "library/queries/Playlists.h"
#include "records/SmartPlaylistRules.h"
#include "records/TrackDisplay.h"

namespace velorin {
namespace {

std::string shown(const std::string& text) {
  return text::escapeForTerminal(text);
}

double totalDuration(const std::vector<TrackInfo>& tracks) {
  double seconds = 0;
  for (const TrackInfo& info : tracks) seconds += info.track.duration;
  return seconds;
}

void list(const PlaylistOptions& options) {
  StoredPlaylists playlists(openDefaultLibrary());
  std::vector<JsonObject> objects;
  TextTable table({{.cut = TextColumn::Cut::atEnd, .least = 20}, {.alignRight = true}, {}});
  for (const Playlist& playlist : playlists.all()) {
    const auto count = playlists.countOf(playlist);
    if (options.json) {
      objects.emplace_back(json(playlist));
      if (count) {
        objects.back().add("trackCount", *count);
      } else {
        objects.back().addNull("trackCount");
      }
    }
    table.addRow({shown(playlist.name), count ? countText(*count, "track") : "unreadable rules",
                  playlist.isSmartPlaylist ? "smart" : ""});
  }
  if (options.json) {
    fmt::print("{}\n", JsonObject::list(objects));
    return;
  }
  for (const std::string& line : table.lines(outputColumns())) fmt::print("{}\n", line);
}

void show(const PlaylistOptions& options) {
  StoredPlaylists playlists(openDefaultLibrary());
  const Playlist playlist = playlists.named(options.name);
  const std::vector<TrackInfo> tracks = playlists.tracksOf(playlist);
  if (options.json) {
    std::vector<JsonObject> objects;
    for (const TrackInfo& info : tracks) objects.push_back(json(info));
    fmt::print("{}\n", JsonObject()
                           .add("playlist", json(playlist))
                           .add("trackCount", static_cast<std::int64_t>(tracks.size()))
                           .add("totalDuration", totalDuration(tracks))
                           .add("tracks", objects)
                           .line());
    return;
  }
  fmt::print("{}{}: {}, {}\n", shown(playlist.name), playlist.isSmartPlaylist ? " (smart)" : "",
             countText(static_cast<std::int64_t>(tracks.size()), "track"),
             durationText(totalDuration(tracks)));
  const TextColumn text{.cut = TextColumn::Cut::atEnd, .least = 10};
  const TextColumn number{.alignRight = true};
  TextTable table({number, text, text, text, number, {}});
  for (std::size_t i = 0; i < tracks.size(); ++i) {
    const TrackInfo& info = tracks[i];
    table.addRow({std::to_string(i + 1), shown(info.track.title), shown(info.artist.name),
                  shown(info.album.title), durationText(info.track.duration),
                  shown(formatAndQuality(info.track))});
  }
  for (const std::string& line : table.lines(outputColumns() - 2)) fmt::print("  {}\n", line);
}

/// Each file by itself: one that cannot be imported keeps no other back.
bool importFiles(const PlaylistOptions& options) {
  const DatabaseHandle database(openDefaultLibraryForWriting());
  bool isWhole = true;
  for (const std::filesystem::path& file : options.files) {
    try {
      const auto result = M3UManager(database).importPlaylist(file.native());
      fmt::print("{}: {} of {} found: playlist \"{}\" with {}\n", text::pathForDisplay(file),
                 groupedText(static_cast<std::int64_t>(result.entries - result.notFound.size())),
                 groupedText(static_cast<std::int64_t>(result.entries)), shown(result.name),
                 countText(static_cast<std::int64_t>(result.tracks), "track"));
      for (const std::string& path : result.notFound) {
        fmt::print("  not in the library: {}\n", text::pathForDisplay(path));
      }
    } catch (const VelorinDatabaseError& error) {
      reportError(fmt::format("{}: {}", text::pathForDisplay(file), error.message));
      isWhole = false;
    }
  }
  return isWhole;
}

void exportFile(const PlaylistOptions& options) {
  StoredPlaylists playlists(openDefaultLibrary());
  std::vector<M3UManager::ExportTrack> tracks;
  for (TrackInfo& info : playlists.tracksOf(playlists.named(options.name))) {
    tracks.push_back({.filePath = std::move(info.track.filePath),
                      .duration = info.track.duration,
                      .artist = std::move(info.artist.name),
                      .title = std::move(info.track.title)});
  }
  const std::string text = M3UManager::exportText(tracks);
  if (options.output.empty()) {
    std::fwrite(text.data(), 1, text.size(), stdout);
    return;
  }
  auto file = OutputFile::create(options.output);
  if (!file) throw VelorinDatabaseError(file.error().text);
  OutputFile& output = *file.value();
  if (!output.write(std::as_bytes(std::span(text))) || !output.commit()) {
    throw VelorinDatabaseError(output.error().text);
  }
}

void remove(const PlaylistOptions& options) {
  StoredPlaylists playlists(openDefaultLibraryForWriting());
  playlists.remove(playlists.named(options.name));
}

void create(const PlaylistOptions& options) {
  std::string failure;
  const auto text = readFile(options.rules, failure);
  if (!text) throw VelorinDatabaseError(failure);
  const auto rules = smartPlaylistRulesFromJSON(*text);
  if (!rules) {
    throw VelorinDatabaseError(
        fmt::format("{}: {}", text::pathForDisplay(options.rules), rules.error().text()));
  }
  const DatabaseHandle database(openDefaultLibraryForWriting());
  Playlists(database).createSmartPlaylist(options.name, toJSON(rules.value()));
}

}  // namespace

int runPlaylist(const PlaylistOptions& options) {
  using Action = PlaylistOptions::Action;
  bool isWhole = true;
  // What the log would say is said here.
  log::setMinimumLevel(log::Level::error);
  try {
    switch (options.action) {
      case Action::list:
        list(options);
        break;
      case Action::show:
        show(options);
        break;
      case Action::importFiles:
        isWhole = importFiles(options);
        break;
      case Action::exportFile:
        exportFile(options);
        break;
      case Action::remove:
        remove(options);
        break;
      case Action::create:
        create(options);
        break;
    }
  } catch (const VelorinDatabaseError& error) {
    reportError(error.message);
    return kExitFailure;
  }
  const int code = finishOutput();
  return isWhole ? code : kExitFailure;
}

}  // namespace velorin
