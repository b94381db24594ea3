#include "StoredPlaylists.h"

#include <fmt/format.h>

#include "foundation/AtomicFile.h"
#include "foundation/Paths.h"
#include "foundation/PropertyList.h"
#include "foundation/Text.h"
#include "library/listening/FavoriteMarks.h"
#include "library/queries/Playlists.h"
#include "library/queries/SmartPlaylists.h"
#include "records/SmartPlaylistRules.h"

namespace velorin {
namespace {

/// Reads the file alone: to open the preferences would put a damaged file aside.
std::set<std::int64_t> favouriteIds() {
  std::string failure;
  const auto stored = propertyList::parse(readFile(paths::preferencesFile(), failure).value_or(""));
  const auto* all = stored ? std::get_if<PreferenceMap>(&stored->value) : nullptr;
  const auto entry = all ? all->find(kFavoriteTrackIds) : PreferenceMap::const_iterator{};
  const auto* list =
      all && entry != all->end() ? std::get_if<PreferenceList>(&entry->second.value) : nullptr;
  std::set<std::int64_t> ids;
  for (const auto& each : list ? *list : PreferenceList{}) {
    if (const auto* id = std::get_if<std::int64_t>(&each.value)) ids.insert(*id);
  }
  return ids;
}

}  // namespace

StoredPlaylists::StoredPlaylists(std::shared_ptr<ConnectionQueue> library)
    : _database(std::move(library)), _favouriteIds(favouriteIds()) {}

std::vector<Playlist> StoredPlaylists::all() const {
  return Playlists(_database).fetchPlaylists();
}

Playlist StoredPlaylists::named(const std::string& name) const {
  const auto folded = [](const std::string& text) {
    return text::lowercaseASCII(text::trimWhitespaceAndNewlines(text));
  };
  for (Playlist& playlist : all()) {
    if (folded(playlist.name) == folded(name)) return std::move(playlist);
  }
  throw VelorinDatabaseError(
      fmt::format("there is no playlist \"{}\": see 'velorin playlist list'", name));
}

std::vector<TrackInfo> StoredPlaylists::tracksOf(const Playlist& playlist) const {
  if (!playlist.isSmartPlaylist) return Playlists(_database).fetchPlaylistTracks(*playlist.id);
  const auto rules = smartPlaylistRulesFromJSON(playlist.rulesJSON.value_or(""));
  if (!rules) {
    throw VelorinDatabaseError(
        fmt::format("the rules of \"{}\" cannot be read: {}", playlist.name, rules.error().text()));
  }
  return SmartPlaylists(_database).fetchSmartPlaylistTracks(rules.value(), _favouriteIds);
}

std::optional<std::int64_t> StoredPlaylists::countOf(const Playlist& playlist) const {
  if (!playlist.isSmartPlaylist) return Playlists(_database).countPlaylistTracks(*playlist.id);
  const auto rules = smartPlaylistRulesFromJSON(playlist.rulesJSON.value_or(""));
  if (!rules) return std::nullopt;
  return static_cast<std::int64_t>(
      SmartPlaylists(_database).fetchSmartPlaylistTrackIds(rules.value(), _favouriteIds).size());
}

void StoredPlaylists::remove(const Playlist& playlist) {
  Playlists(_database).deletePlaylist(*playlist.id);
}

}  // namespace velorin
