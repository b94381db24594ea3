#include "library/search/RowSizes.h"

#include "library/search/FtsSegments.h"

namespace velorin {
namespace {

// Ids are never used again. After so many tracks came and went for each that stayed, a place for
// each id would be a waste.
constexpr std::int64_t kMostIdsPerRow = 16;
constexpr std::int64_t kFewIds = 1'000'000;

}  // namespace

RowSizes RowSizes::read(sqlite::Reader& reader) {
  RowSizes sizes;
  sizes._firstRow =
      reader.first<std::int64_t>("SELECT MIN(id) FROM tracks_fts_docsize").value_or(0);
  const auto last =
      reader.first<std::int64_t>("SELECT MAX(id) FROM tracks_fts_docsize").value_or(0);
  const std::int64_t rows = ftsTotals(reader).rows;
  if (sizes._firstRow <= 0 ||
      (last - sizes._firstRow >= kFewIds && (last - sizes._firstRow) / kMostIdsPerRow > rows)) {
    throw UnknownFtsFormat();
  }
  sizes._sizes.resize(static_cast<std::size_t>(last - sizes._firstRow) + 1);
  reader.each("SELECT id, sz FROM tracks_fts_docsize", [&](const sqlite::Row& row) {
    const std::int64_t tokens = ftsSum(row.get<std::span<const std::byte>>(1));
    if (tokens > std::numeric_limits<std::uint16_t>::max()) throw UnknownFtsFormat();
    sizes._sizes[static_cast<std::size_t>(row.get<std::int64_t>(0) - sizes._firstRow)] =
        static_cast<std::uint16_t>(tokens);
  });
  return sizes;
}

}  // namespace velorin
