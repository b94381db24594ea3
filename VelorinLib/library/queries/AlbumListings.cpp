#include "library/queries/AlbumListings.h"

#include "library/queries/FocusSQL.h"
#include "library/queries/Like.h"
#include "library/queries/SortText.h"
#include "library/rows/TrackRow.h"

namespace velorin {
namespace {

const std::string kAlbumInfoRequest =
    "SELECT " + rows::kAlbumColumns + ", " + rows::kArtistColumns + R"(,
       COUNT(t.id) AS trackCount,
       COALESCE(SUM(t.duration), 0) AS totalDuration,
       MAX(t.sampleRate) AS maxSampleRate,
       MAX(t.bitDepth) AS maxBitDepth
FROM albums
JOIN artists ON artists.id = albums.artistId
LEFT JOIN tracks t ON t.albumId = albums.id)";

AlbumInfo albumInfoOf(const sqlite::Row& row) {
  AlbumInfo info;
  sqlite::RowReader reader(row);
  reader >> info.album >> info.artist >> info.trackCount >> info.totalDuration >>
      info.maxSampleRate >> info.maxBitDepth;
  info.format = info.album.worstFormat;
  return info;
}

template <class... Arguments>
std::vector<AlbumInfo> albumInfos(sqlite::Reader& reader, const std::string& tail,
                                  const Arguments&... arguments) {
  std::vector<AlbumInfo> infos;
  reader.each(
      kAlbumInfoRequest + tail, [&](const sqlite::Row& row) { infos.push_back(albumInfoOf(row)); },
      arguments...);
  return infos;
}

/// The focus as a further condition on the tracks that are joined; no text where there is none.
SqlFragment joinCondition(const std::optional<FocusFilter>& focus) {
  auto fragment = focusSQL(focus);
  if (!fragment) return {};
  return {" AND " + withAlias(std::move(fragment->text), "tracks", "t"),
          std::move(fragment->arguments)};
}

}  // namespace

std::vector<AlbumInfo> AlbumListings::fetchAlbumInfos(
    const AlbumSort& sort, const std::optional<FocusFilter>& focus) const {
  const SqlFragment condition = joinCondition(focus);
  return _database.read([&](sqlite::Reader& reader) {
    return albumInfos(reader, condition.text + R"(
GROUP BY albums.id
HAVING trackCount > 0
ORDER BY )" + orderText(sort),
                      condition.arguments);
  });
}

std::vector<AlbumInfo> AlbumListings::fetchAlbumInfosForArtist(std::int64_t artistId) const {
  return _database.read([&](sqlite::Reader& reader) {
    return albumInfos(reader, std::string(R"(
WHERE albums.artistId = ?
GROUP BY albums.id
ORDER BY )") + kAlbumOrderWithinArtist,
                      artistId);
  });
}

std::vector<AlbumInfo> AlbumListings::searchAlbums(std::string_view text, const AlbumSort& sort,
                                                   const std::optional<FocusFilter>& focus) const {
  const SqlFragment condition = joinCondition(focus);
  const std::string pattern = "%" + escapedForLike(text) + "%";
  // Without a focus an album stands even when its last track has just gone.
  const char* const having = condition.text.empty() ? "" : "\nHAVING trackCount > 0";
  return _database.read([&](sqlite::Reader& reader) {
    return albumInfos(reader,
                      condition.text + R"(
WHERE (albums.title LIKE ? ESCAPE '\' OR artists.name LIKE ? ESCAPE '\')
GROUP BY albums.id)" + having +
                          "\nORDER BY " + orderText(sort),
                      condition.arguments, pattern, pattern);
  });
}

std::unordered_map<std::int64_t, std::int64_t> AlbumListings::fetchArtworkAlbumIds(
    const std::vector<std::int64_t>& artistIds) const {
  return _database.read([&](sqlite::Reader& reader) {
    std::unordered_map<std::int64_t, std::int64_t> albumIds;
    sqlite::forEachSlice(artistIds, [&](std::span<const std::int64_t> slice) {
      reader.each(
          R"(
SELECT artistId, MIN(id) AS albumId FROM albums
WHERE artistId IN ()" +
              sqlite::placeholders(slice.size()) + ") GROUP BY artistId",
          [&](const sqlite::Row& row) {
            albumIds.emplace(row.get<std::int64_t>(0), row.get<std::int64_t>(1));
          },
          slice);
    });
    return albumIds;
  });
}

}  // namespace velorin
