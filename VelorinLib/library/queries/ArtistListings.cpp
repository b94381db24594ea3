#include "library/queries/ArtistListings.h"

#include <fmt/format.h>

#include <unordered_map>

#include "library/queries/FocusSQL.h"
#include "library/queries/IdIndex.h"

namespace velorin {
namespace {

/// Counts the different albums of each artist.
class AlbumCounter {
 public:
  explicit AlbumCounter(std::size_t artists) : _latest(artists) {}

  void add(std::size_t artist, std::int64_t album) {
    // An album's tracks mostly come one after the other.
    if (_latest[artist] == album) return;
    _latest[artist] = album;
    _pairs.emplace_back(artist, album);
  }

  /// The index of an artist, once for each of its albums.
  std::vector<std::size_t> artists() {
    std::sort(_pairs.begin(), _pairs.end());
    const auto end = std::unique(_pairs.begin(), _pairs.end());
    std::vector<std::size_t> artists;
    std::transform(_pairs.begin(), end, std::back_inserter(artists),
                   [](const auto& pair) { return pair.first; });
    return artists;
  }

 private:
  std::vector<std::optional<std::int64_t>> _latest;
  std::vector<std::pair<std::size_t, std::int64_t>> _pairs;
};

}  // namespace

std::vector<ArtistInfo> ArtistListings::fetchArtistInfos(const ArtistSort& sort,
                                                         const std::optional<FocusFilter>& focus,
                                                         std::int64_t limit, std::int64_t offset) {
  const auto queue = _database.dbQueue();
  if (!queue) return {};
  return queue->read([&](sqlite::Reader& reader) {
    const auto version = queue->version(reader, static_cast<unsigned>(Facet::library));
    constexpr ArtistSort kByName{};
    const auto byName = [&] {
      return _cache.get(queue, version, {kByName, focus}, [&] { return aggregate(reader, focus); });
    };
    const auto rows = sort == kByName ? byName() : _cache.get(queue, version, {sort, focus}, [&] {
      return reordered(*byName(), sort);
    });
    return named(reader, pageOf(*rows, limit, offset));
  });
}

std::vector<ArtistListings::Totals> ArtistListings::aggregate(
    sqlite::Reader& reader, const std::optional<FocusFilter>& focus) {
  std::vector<Totals> totals;
  IdIndex artists;
  reader.each("SELECT id FROM artists ORDER BY name COLLATE NOCASE", [&](const sqlite::Row& row) {
    const auto id = row.get<std::int64_t>(0);
    artists.add(id);
    totals.push_back({.artistId = id});
  });

  std::string sql = R"(
SELECT t.artistId, al.id, t.duration
FROM tracks t
LEFT JOIN albums al ON al.id = t.albumId)";
  const auto filter = focusSQL(focus);
  if (filter) {
    sql += "\nWHERE ";
    sql += withAlias(withAlias(filter->text, "tracks", "t"), "albums", "al");
  }
  AlbumCounter albums(totals.size());
  reader.each(
      sql,
      [&](const sqlite::Row& row) {
        const auto index = artists.find(row.get<std::int64_t>(0));
        if (!index) return;
        Totals& artist = totals[*index];
        ++artist.trackCount;
        artist.duration += row.get<double>(2);
        if (!row.isNull(1)) albums.add(*index, row.get<std::int64_t>(1));
      },
      filter ? filter->arguments : sqlite::Values{});
  for (const std::size_t artist : albums.artists()) ++totals[artist].albumCount;
  std::erase_if(totals, [](const Totals& each) { return each.trackCount == 0; });
  totals.shrink_to_fit();
  return totals;
}

std::vector<ArtistListings::Totals> ArtistListings::reordered(std::vector<Totals> byName,
                                                              const ArtistSort& sort) {
  if (sort.column == ArtistSortColumn::name) {
    if (!sort.ascending) std::reverse(byName.begin(), byName.end());
    return byName;
  }
  const auto count = [&](const Totals& each) {
    return sort.column == ArtistSortColumn::albumCount ? each.albumCount : each.trackCount;
  };
  // Equals stay in the order of the names, whatever the direction.
  std::stable_sort(byName.begin(), byName.end(), [&](const Totals& left, const Totals& right) {
    return sort.ascending ? count(left) < count(right) : count(left) > count(right);
  });
  return byName;
}

std::vector<ArtistInfo> ArtistListings::named(sqlite::Reader& reader,
                                              std::span<const Totals> page) {
  std::vector<std::int64_t> ids;
  ids.reserve(page.size());
  for (const Totals& each : page) ids.push_back(each.artistId);
  std::unordered_map<std::int64_t, std::string> names;
  sqlite::forEachSlice(ids, [&](std::span<const std::int64_t> slice) {
    reader.each(
        fmt::format("SELECT id, name FROM artists WHERE id IN ({})",
                    sqlite::placeholders(slice.size())),
        [&](const sqlite::Row& row) {
          names.emplace(row.get<std::int64_t>(0), row.get<std::string>(1));
        },
        slice);
  });
  std::vector<ArtistInfo> infos;
  infos.reserve(page.size());
  for (const Totals& each : page) {
    infos.push_back({{each.artistId, std::move(names[each.artistId])},
                     each.albumCount,
                     each.trackCount,
                     each.duration});
  }
  return infos;
}

}  // namespace velorin
