#include "library/queries/TrackListings.h"

#include "library/queries/SortText.h"
#include "library/rows/TrackInfos.h"

namespace velorin {
namespace {

// Up to here a plain statement, which keeps only the best rows while it sorts, is quicker than to
// make the whole order.
constexpr std::int64_t kPlainRows = 2'000;

std::optional<SqlFragment> both(std::optional<SqlFragment> first,
                                const std::optional<SqlFragment>& second) {
  if (!first || !second) return first ? first : second;
  first->text += " AND " + second->text;
  first->arguments.insert(first->arguments.end(), second->arguments.begin(),
                          second->arguments.end());
  return first;
}

std::optional<SqlFragment> focusText(const std::optional<FocusFilter>& focus) {
  return focus ? focusSQL(*focus) : std::nullopt;
}

std::vector<TrackInfo> plainPage(sqlite::Reader& reader, const TrackListing& listing,
                                 std::int64_t limit, std::int64_t offset) {
  const std::string sql = "SELECT tracks.id" + rows::kTrackInfoFrom + whereText(listing) +
                          orderByText(listing) + "\nLIMIT ? OFFSET ?";
  const sqlite::Values none;
  return rows::trackInfosInOrder(
      reader, reader.column<std::int64_t>(sql, listing.filter ? listing.filter->arguments : none,
                                          limit, offset));
}

}  // namespace

std::vector<TrackInfo> TrackListings::fetchTracks(const std::optional<TrackSort>& sort,
                                                  const std::optional<FocusFilter>& focus,
                                                  std::int64_t limit, std::int64_t offset) {
  return page({sort, focusText(focus)}, limit, offset);
}

std::vector<TrackInfo> TrackListings::fetchTracks(TrackCategory category, const std::string& value,
                                                  const std::optional<TrackSort>& sort,
                                                  const std::optional<FocusFilter>& focus,
                                                  std::int64_t limit, std::int64_t offset) {
  const std::string column = category == TrackCategory::genre ? "genre" : "composer";
  SqlFragment filter{"tracks." + column + " = ? COLLATE NOCASE", {value}};
  return page({sort, both(std::move(filter), focusText(focus))}, limit, offset);
}

std::vector<TrackInfo> TrackListings::page(const TrackListing& listing, std::int64_t limit,
                                           std::int64_t offset) {
  const auto queue = _database.dbQueue();
  if (!queue) return {};
  offset = std::max<std::int64_t>(offset, 0);
  const bool isDeep = limit < 0 || limit > kPlainRows - std::min(offset, kPlainRows);
  if (isDeep) _orders.prepareNow(listing);
  bool wasReady = false;
  auto tracks = queue->read([&](sqlite::Reader& reader) {
    const auto order = _orders.find(listing, *queue, reader);
    wasReady = order != nullptr;
    if (!order) return plainPage(reader, listing, limit, offset);
    const std::size_t most = limit < 0 ? order->size() : static_cast<std::size_t>(limit);
    return rows::trackInfosInOrder(reader, order->slice(static_cast<std::size_t>(offset), most));
  });
  if (!wasReady && !isDeep) _orders.prepare(listing);
  return tracks;
}

std::vector<TrackInfo> TrackListings::fetchTracksForAlbum(std::int64_t albumId) const {
  return _database.read([&](sqlite::Reader& reader) {
    return rows::trackInfos(
        reader,
        fmt::format("\nWHERE tracks.albumId = ?\nORDER BY {}, tracks.id", kOrderWithinAlbum),
        albumId);
  });
}

std::vector<TrackInfo> TrackListings::fetchTracksForArtist(std::int64_t artistId,
                                                           std::int64_t limit,
                                                           std::int64_t offset) const {
  return _database.read([&](sqlite::Reader& reader) {
    return rows::trackInfos(
        reader,
        fmt::format("\nWHERE tracks.artistId = ?\nORDER BY {}, tracks.id\nLIMIT ? OFFSET ?",
                    kOrderWithinArtist),
        artistId, limit, offset);
  });
}

std::vector<TrackInfo> TrackListings::fetchTracks(const std::vector<std::int64_t>& ids) const {
  return _database.read(
      [&](sqlite::Reader& reader) { return rows::trackInfosInOrder(reader, ids); });
}

std::int64_t TrackListings::countTracks() const {
  return _database.read([](sqlite::Reader& reader) {
    return reader.first<std::int64_t>("SELECT COUNT(*) FROM tracks").value_or(0);
  });
}

LibraryCounts TrackListings::counts() const {
  return _database.read([](sqlite::Reader& reader) {
    const auto count = [&](const char* sql) { return reader.first<std::int64_t>(sql).value_or(0); };
    return LibraryCounts{count("SELECT COUNT(*) FROM artists"),
                         count("SELECT COUNT(*) FROM albums"),
                         count("SELECT COUNT(*) FROM tracks")};
  });
}

}  // namespace velorin
