#include <fmt/format.h>

#include <algorithm>
#include <unordered_set>

#include "foundation/Log.h"
#include "foundation/Text.h"
#include "library/metadata/FileName.h"
#include "library/playlists/M3UManager.h"
#include "library/playlists/TrackMatcher.h"
#include "library/queries/Playlists.h"

namespace velorin {
namespace {

using Code = M3UError::Code;

/// Deleted playlists keep their names.
std::string freeName(const DatabaseHandle& database, const std::string& stem) {
  const auto taken = database.read([](sqlite::Reader& reader) {
    std::unordered_set<std::string> names;
    for (const auto& name : reader.column<std::string>("SELECT name FROM playlists")) {
      names.insert(text::lowercaseASCII(name));
    }
    return names;
  });
  std::string name = stem;
  for (int number = 2; taken.contains(text::lowercaseASCII(name)); ++number) {
    name = fmt::format("{} ({})", stem, number);
  }
  return name;
}

void logMissing(const M3UManager::Imported& result, std::string_view stem) {
  constexpr std::size_t kShown = 3;
  log::line("⚠️ M3U import '{}': {}/{} tracks not found in library", stem,
            result.notFound.size(), result.entries);
  // A line of the log is one event, so that each path has its own.
  for (std::size_t i = 0; i < std::min(kShown, result.notFound.size()); ++i) {
    log::line("{}", result.notFound[i]);
  }
}

}  // namespace

M3UManager::Imported M3UManager::importPlaylist(const std::string& file) const {
  const auto entries = parse(file);
  if (entries.empty()) throw M3UError(Code::empty, "M3U file is empty");
  const std::string stem(text::trimWhitespaceAndNewlines(text::toValidUTF8(fileStem(file))));
  Imported result{
      .playlistId = 0, .name = {}, .entries = entries.size(), .tracks = 0, .notFound = {}};
  const auto matches =
      _database.read([&](sqlite::Reader& reader) { return matchTracks(reader, entries); });
  std::vector<std::int64_t> ids;
  std::unordered_set<std::int64_t> seen;
  for (std::size_t i = 0; i < entries.size(); ++i) {
    const auto match = i < matches.size() ? matches[i] : std::nullopt;
    if (!match) {
      result.notFound.push_back(entries[i].path);
    } else if (seen.insert(*match).second) {
      ids.push_back(*match);
    }
  }
  if (ids.empty()) throw M3UError(Code::noMatch, "No tracks from M3U matched the library");
  if (!result.notFound.empty()) logMissing(result, stem);

  Playlists playlists(_database);
  result.name = freeName(_database, stem);
  const Playlist playlist = playlists.createPlaylist(result.name);
  if (!playlist.id) throw M3UError(Code::notCreated, "Failed to create playlist");
  result.playlistId = *playlist.id;
  result.tracks = ids.size();
  playlists.addTracks(result.playlistId, ids);
  log::line("✅ M3U imported '{}': {} tracks", result.name, ids.size());
  return result;
}

}  // namespace velorin
