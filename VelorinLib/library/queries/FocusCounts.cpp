#include "library/queries/FocusCounts.h"

#include <map>

#include "library/queries/Spellings.h"

namespace velorin {
namespace {

std::vector<FocusCount> genres(sqlite::Reader& reader) {
  // By spelling first, which the index has in order.
  std::vector<FocusCount> counts;
  Spellings names;
  reader.each(
      R"(
SELECT genre, COUNT(*) AS cnt
FROM tracks
WHERE genre IS NOT NULL AND genre != ''
GROUP BY genre
ORDER BY genre COLLATE NOCASE, genre)",
      [&](const sqlite::Row& row) {
        const auto spelling = row.get<std::string_view>(0);
        const std::size_t index = names.indexOf(spelling);
        if (index == counts.size()) counts.push_back({.value = std::string(spelling)});
        counts[index].count += row.get<std::int64_t>(1);
      });
  return counts;
}

std::vector<FocusCount> years(sqlite::Reader& reader) {
  // By album first, which the index has in order.
  std::vector<FocusCount> counts;
  reader.each(
      R"(
SELECT albums.year, SUM(perAlbum.cnt)
FROM (SELECT albumId, COUNT(*) AS cnt FROM tracks GROUP BY albumId) AS perAlbum
JOIN albums ON albums.id = perAlbum.albumId
WHERE albums.year IS NOT NULL AND albums.year != 0
GROUP BY albums.year
ORDER BY albums.year DESC)",
      [&](const sqlite::Row& row) {
        counts.push_back({row.get<std::string>(0), row.get<std::int64_t>(1)});
      });
  return counts;
}

/// What the files are, counted in one walk over all tracks.
class FileKinds {
 public:
  explicit FileKinds(sqlite::Reader& reader) {
    reader.each("SELECT format, sampleRate, bitDepth FROM tracks", [&](const sqlite::Row& row) {
      if (const auto format = row.get<std::string_view>(0); !format.empty()) addFormat(format);
      if (const auto rate = row.get<std::int64_t>(1); rate != 0) ++_rates[rate];
      if (const auto depth = row.get<std::int64_t>(2); depth != 0) ++_depths[depth];
    });
    std::sort(_formats.begin(), _formats.end(),
              [](const FocusCount& left, const FocusCount& right) {
                return text::lowercaseASCII(left.value) < text::lowercaseASCII(right.value);
              });
  }

  std::vector<FocusCount> counts(FocusCategory category) const {
    if (category == FocusCategory::format) return _formats;
    std::vector<FocusCount> counts;
    for (const auto& [value, count] : category == FocusCategory::bitDepth ? _depths : _rates) {
      counts.push_back({std::to_string(value), count});
    }
    return counts;
  }

 private:
  void addFormat(std::string_view spelling) {
    const std::size_t index = _names.indexOf(spelling);
    if (index == _formats.size()) _formats.push_back({.value = std::string(spelling)});
    ++_formats[index].count;
  }

  Spellings _names;
  std::vector<FocusCount> _formats;
  std::map<std::int64_t, std::int64_t> _rates;
  std::map<std::int64_t, std::int64_t> _depths;
};

}  // namespace

std::vector<FocusCount> FocusCounts::fetchCounts(FocusCategory category) {
  const auto queue = _database.dbQueue();
  if (!queue) return {};
  return queue->read([&](sqlite::Reader& reader) { return *countsOf(reader, queue, category); });
}

FocusCounts::Counts FocusCounts::countsOf(sqlite::Reader& reader,
                                          const std::shared_ptr<ConnectionQueue>& queue,
                                          FocusCategory category) {
  const auto version = queue->version(reader, static_cast<unsigned>(Facet::library));
  return _cache.get(queue, version, category, [&] {
    if (category == FocusCategory::genre) return genres(reader);
    if (category == FocusCategory::year) return years(reader);
    // Who asks for one of these asks for the others next.
    const FileKinds kinds(reader);
    for (const auto each :
         {FocusCategory::format, FocusCategory::sampleRate, FocusCategory::bitDepth}) {
      if (each == category) continue;
      _cache.get(queue, version, each, [&] { return kinds.counts(each); });
    }
    return kinds.counts(category);
  });
}

}  // namespace velorin
