#include "library/queries/SmartPlaylists.h"

#include "library/queries/SmartPlaylistSQL.h"
#include "library/rows/TrackInfos.h"

namespace velorin {
namespace {

std::vector<std::int64_t> idsOf(sqlite::Reader& reader, const SqlFragment& statement) {
  return reader.column<std::int64_t>(statement.text, statement.arguments);
}

}  // namespace

std::vector<TrackInfo> SmartPlaylists::fetchSmartPlaylistTracks(
    const SmartPlaylistRules& rules, const std::set<std::int64_t>& favouriteIds) const {
  const SqlFragment statement = smartPlaylistSQL(rules, favouriteIds);
  return _database.read([&](sqlite::Reader& reader) {
    return rows::trackInfosInOrder(reader, idsOf(reader, statement));
  });
}

std::vector<std::int64_t> SmartPlaylists::fetchSmartPlaylistTrackIds(
    const SmartPlaylistRules& rules, const std::set<std::int64_t>& favouriteIds) const {
  const SqlFragment statement = smartPlaylistSQL(rules, favouriteIds);
  return _database.read([&](sqlite::Reader& reader) { return idsOf(reader, statement); });
}

}  // namespace velorin
