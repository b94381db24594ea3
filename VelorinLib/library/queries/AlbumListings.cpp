#include "library/queries/AlbumListings.h"

#include <fmt/format.h>

#include "library/queries/FocusSQL.h"
#include "library/queries/IdIndex.h"
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

std::vector<AlbumInfo> AlbumListings::fetchAlbumInfos(const AlbumSort& sort,
                                                      const std::optional<FocusFilter>& focus) {
  const auto queue = _database.dbQueue();
  if (!queue) return {};
  return queue->read([&](sqlite::Reader& reader) {
    const auto version = queue->version(reader, static_cast<unsigned>(Facet::library));
    const auto totals =
        _totals.get(queue, version, focus, [&] { return aggregate(reader, focus); });
    const auto order = _orders.get(queue, version, sort, [&] { return idsInOrder(reader, sort); });
    std::vector<Totals> listed;
    listed.reserve(totals->size());
    for (const std::int64_t id : *order) {
      const auto found =
          std::lower_bound(totals->begin(), totals->end(), id,
                           [](const Totals& each, std::int64_t key) { return each.albumId < key; });
      if (found != totals->end() && found->albumId == id) listed.push_back(*found);
    }
    return infosOf(reader, listed);
  });
}

std::vector<AlbumListings::Totals> AlbumListings::aggregate(
    sqlite::Reader& reader, const std::optional<FocusFilter>& focus) {
  std::string sql = "SELECT t.albumId, t.duration, t.sampleRate, t.bitDepth FROM tracks t";
  const auto filter = focusSQL(focus);
  if (filter) {
    sql += "\nJOIN albums ON albums.id = t.albumId\nWHERE ";
    sql += withAlias(filter->text, "tracks", "t");
  }
  std::vector<Totals> totals;
  IdIndex albums;
  reader.each(
      sql,
      [&](const sqlite::Row& row) {
        const auto id = row.get<std::int64_t>(0);
        const std::size_t index = albums.add(id);
        if (index == totals.size()) totals.push_back({.albumId = id});
        Totals& album = totals[index];
        ++album.trackCount;
        album.duration += row.get<double>(1);
        // What is not known is less than anything.
        album.maxSampleRate = std::max(album.maxSampleRate, row.get<std::optional<int>>(2));
        album.maxBitDepth = std::max(album.maxBitDepth, row.get<std::optional<int>>(3));
      },
      filter ? filter->arguments : sqlite::Values{});
  std::sort(totals.begin(), totals.end(),
            [](const Totals& left, const Totals& right) { return left.albumId < right.albumId; });
  totals.shrink_to_fit();
  return totals;
}

std::vector<std::int64_t> AlbumListings::idsInOrder(sqlite::Reader& reader, const AlbumSort& sort) {
  return reader.column<std::int64_t>(fmt::format(R"(
SELECT albums.id
FROM albums
JOIN artists ON artists.id = albums.artistId
ORDER BY {})",
                                                 orderText(sort)));
}

std::vector<AlbumInfo> AlbumListings::infosOf(sqlite::Reader& reader,
                                              const std::vector<Totals>& totals) {
  std::vector<AlbumInfo> infos;
  infos.reserve(totals.size());
  sqlite::forEachSlice(totals, [&](std::span<const Totals> slice) {
    std::unordered_map<std::int64_t, std::size_t> positions;
    std::vector<std::int64_t> ids;
    for (const Totals& each : slice) {
      positions.emplace(each.albumId, infos.size());
      ids.push_back(each.albumId);
      AlbumInfo& info = infos.emplace_back();
      info.trackCount = each.trackCount;
      info.totalDuration = each.duration;
      info.maxSampleRate = each.maxSampleRate;
      info.maxBitDepth = each.maxBitDepth;
    }
    reader.each(
        fmt::format(R"(
SELECT {}, {}
FROM albums
JOIN artists ON artists.id = albums.artistId
WHERE albums.id IN ({}))",
                    rows::kAlbumColumns, rows::kArtistColumns, sqlite::placeholders(ids.size())),
        [&](const sqlite::Row& row) {
          AlbumInfo& info = infos[positions.at(row.get<std::int64_t>(0))];
          sqlite::RowReader columns(row);
          columns >> info.album >> info.artist;
          info.format = info.album.worstFormat;
        },
        std::span<const std::int64_t>(ids));
  });
  return infos;
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
  const auto pattern = likeAnywhere(text);
  if (!pattern) return {};
  // Without a focus an album stands even when its last track has just gone.
  const std::string tail = fmt::format(
      R"({}
WHERE (albums.title LIKE ? ESCAPE '\' OR artists.name LIKE ? ESCAPE '\')
GROUP BY albums.id{}
ORDER BY {})",
      condition.text, condition.text.empty() ? "" : "\nHAVING trackCount > 0", orderText(sort));
  return _database.read([&](sqlite::Reader& reader) {
    return albumInfos(reader, tail, condition.arguments, *pattern, *pattern);
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
