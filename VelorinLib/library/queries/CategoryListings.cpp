#include "library/queries/CategoryListings.h"

#include <fmt/format.h>

#include "library/queries/Spellings.h"

namespace velorin {
namespace {

/// The names in a column of tracks with their figures, in the order of the names.
std::vector<CategoryInfo> aggregate(sqlite::Reader& reader, const std::string& column) {
  std::vector<CategoryInfo> infos;
  Spellings names;
  // Through the column's index the rows would be met in the order of the names, which is to say
  // all over the table: one walk from end to end takes a fraction of that.
  reader.each(fmt::format("SELECT {0}, duration FROM tracks NOT INDEXED "
                          "WHERE {0} IS NOT NULL AND {0} != ''",
                          column),
              [&](const sqlite::Row& row) {
                const auto spelling = row.get<std::string_view>(0);
                const std::size_t index = names.indexOf(spelling);
                if (index == infos.size()) infos.push_back({.name = std::string(spelling)});
                CategoryInfo& info = infos[index];
                if (spelling < info.name) info.name = spelling;
                ++info.trackCount;
                info.totalDuration += row.get<double>(1);
              });
  std::sort(infos.begin(), infos.end(), [](const CategoryInfo& left, const CategoryInfo& right) {
    return text::lowercaseASCII(left.name) < text::lowercaseASCII(right.name);
  });
  return infos;
}

std::vector<CategoryInfo> reordered(std::vector<CategoryInfo> byName, const CategorySort& sort) {
  if (sort.column == CategorySortColumn::name) {
    if (!sort.ascending) std::reverse(byName.begin(), byName.end());
    return byName;
  }
  // Equals stay in the order of the names, whatever the direction.
  std::stable_sort(byName.begin(), byName.end(),
                   [&](const CategoryInfo& left, const CategoryInfo& right) {
                     return sort.ascending ? left.trackCount < right.trackCount
                                           : left.trackCount > right.trackCount;
                   });
  return byName;
}

}  // namespace

std::vector<GenreInfo> CategoryListings::fetchGenreStats(const CategorySort& sort,
                                                         std::int64_t limit, std::int64_t offset) {
  return fetchStats("genre", sort, limit, offset);
}

std::vector<ComposerInfo> CategoryListings::fetchComposerStats(const CategorySort& sort,
                                                               std::int64_t limit,
                                                               std::int64_t offset) {
  return fetchStats("composer", sort, limit, offset);
}

std::vector<CategoryInfo> CategoryListings::fetchStats(const std::string& column,
                                                       const CategorySort& sort, std::int64_t limit,
                                                       std::int64_t offset) {
  const auto queue = _database.dbQueue();
  if (!queue) return {};
  return queue->read([&](sqlite::Reader& reader) {
    const auto version = queue->version(reader, static_cast<unsigned>(Facet::library));
    const auto byName = [&] {
      return _cache.get(queue, version, {column, {}}, [&] { return aggregate(reader, column); });
    };
    const auto rows =
        sort == CategorySort{} ? byName() : _cache.get(queue, version, {column, sort}, [&] {
          return reordered(*byName(), sort);
        });
    const auto page = pageOf(*rows, limit, offset);
    return std::vector<CategoryInfo>(page.begin(), page.end());
  });
}

std::vector<std::string> CategoryListings::fetchAllGenres() const {
  return fetchAll("genre");
}

std::vector<std::string> CategoryListings::fetchAllComposers() const {
  return fetchAll("composer");
}

std::vector<std::string> CategoryListings::fetchAll(const std::string& column) const {
  // From each name the index leads to the next one, past the tracks that share it.
  const std::string sql = fmt::format(R"(
WITH RECURSIVE found(name) AS (
  SELECT MIN({0}) FROM tracks
  UNION ALL
  SELECT (SELECT MIN({0}) FROM tracks WHERE {0} > found.name)
  FROM found WHERE found.name IS NOT NULL
)
SELECT name FROM found WHERE name IS NOT NULL ORDER BY name COLLATE NOCASE, name)",
                                      column);
  return _database.read([&](sqlite::Reader& reader) { return reader.column<std::string>(sql); });
}

}  // namespace velorin
