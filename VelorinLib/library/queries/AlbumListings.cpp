#include "library/queries/AlbumListings.h"

#include <fmt/format.h>

#include "library/queries/FocusSQL.h"
#include "library/queries/Like.h"
#include "library/queries/SortText.h"
#include "library/rows/TrackRow.h"

namespace velorin {
namespace {

const std::string kAlbumInfoRequest = fmt::format(R"(
SELECT {}, {},
       COUNT(t.id) AS trackCount,
       COALESCE(SUM(t.duration), 0) AS totalDuration,
       MAX(t.sampleRate) AS maxSampleRate,
       MAX(t.bitDepth) AS maxBitDepth
FROM albums
JOIN artists ON artists.id = albums.artistId
LEFT JOIN tracks t ON t.albumId = albums.id)",
                                                  rows::kAlbumColumns, rows::kArtistColumns);

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
  return {fmt::format(" AND {}", withAlias(std::move(fragment->text), "tracks", "t")),
          std::move(fragment->arguments)};
}

}  // namespace

std::vector<AlbumInfo> AlbumListings::fetchAlbumInfos(
    const AlbumSort& sort, const std::optional<FocusFilter>& focus) const {
  const SqlFragment condition = joinCondition(focus);
  const std::string tail = fmt::format(R"({}
GROUP BY albums.id
HAVING trackCount > 0
ORDER BY {})",
                                       condition.text, orderText(sort));
  return _database.read(
      [&](sqlite::Reader& reader) { return albumInfos(reader, tail, condition.arguments); });
}

std::vector<AlbumInfo> AlbumListings::fetchAlbumInfosForArtist(std::int64_t artistId) const {
  const std::string tail = fmt::format(R"(
WHERE albums.artistId = ?
GROUP BY albums.id
ORDER BY {})",
                                       kAlbumOrderWithinArtist);
  return _database.read([&](sqlite::Reader& reader) { return albumInfos(reader, tail, artistId); });
}

std::vector<AlbumInfo> AlbumListings::searchAlbums(std::string_view text, const AlbumSort& sort,
                                                   const std::optional<FocusFilter>& focus) const {
  const SqlFragment condition = joinCondition(focus);
  const std::string pattern = "%" + escapedForLike(text) + "%";
  // Without a focus an album stands even when its last track has just gone.
  const std::string tail = fmt::format(
      R"({}
WHERE (albums.title LIKE ? ESCAPE '\' OR artists.name LIKE ? ESCAPE '\')
GROUP BY albums.id{}
ORDER BY {})",
      condition.text, condition.text.empty() ? "" : "\nHAVING trackCount > 0", orderText(sort));
  return _database.read([&](sqlite::Reader& reader) {
    return albumInfos(reader, tail, condition.arguments, pattern, pattern);
  });
}

std::unordered_map<std::int64_t, std::int64_t> AlbumListings::fetchArtworkAlbumIds(
    const std::vector<std::int64_t>& artistIds) const {
  return _database.read([&](sqlite::Reader& reader) {
    std::unordered_map<std::int64_t, std::int64_t> albumIds;
    sqlite::forEachSlice(artistIds, [&](std::span<const std::int64_t> slice) {
      reader.each(
          fmt::format(R"(
SELECT artistId, MIN(id) AS albumId FROM albums
WHERE artistId IN ({}) GROUP BY artistId)",
                      sqlite::placeholders(slice.size())),
          [&](const sqlite::Row& row) {
            albumIds.emplace(row.get<std::int64_t>(0), row.get<std::int64_t>(1));
          },
          slice);
    });
    return albumIds;
  });
}

}  // namespace velorin
