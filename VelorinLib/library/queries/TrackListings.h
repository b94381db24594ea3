// Lists of tracks, a page at a time.
#pragma once

#include "library/DatabaseHandle.h"
#include "library/queries/TrackOrderCache.h"
#include "records/FocusFilter.h"
#include "records/TrackInfo.h"

namespace velorin {

/// A column of tracks by which a listener browses.
enum class TrackCategory { genre, composer };

struct LibraryCounts {
  std::int64_t artists = 0;
  std::int64_t albums = 0;
  std::int64_t tracks = 0;
};

/// Pages are cut out of one fixed order: that of the sort, with the track's id behind its last
/// tie-break. The first page of a listing comes from a plain statement; meanwhile the whole order
/// is made ready, so that any later page, however deep, costs only its own rows.
///
/// A limit below 0 means all rows. Any thread but the render thread; errors are thrown as
/// VelorinDatabaseError.
class TrackListings {
 public:
  explicit TrackListings(const DatabaseHandle& database) : _database(database) {}

  /// All tracks. No sort: newest first.
  std::vector<TrackInfo> fetchTracks(const std::optional<TrackSort>& sort,
                                     const std::optional<FocusFilter>& focus, std::int64_t limit,
                                     std::int64_t offset = 0);

  /// The same; without a sort, the tracks that came in last.
  std::vector<TrackInfo> fetchRecentlyAddedTracks(const std::optional<TrackSort>& sort,
                                                  const std::optional<FocusFilter>& focus,
                                                  std::int64_t limit, std::int64_t offset = 0) {
    return fetchTracks(sort, focus, limit, offset);
  }

  /// The tracks of one genre or composer, in any spelling that differs in case only, as the lists
  /// of genres and composers count them.
  std::vector<TrackInfo> fetchTracks(TrackCategory category, const std::string& value,
                                     const std::optional<TrackSort>& sort,
                                     const std::optional<FocusFilter>& focus, std::int64_t limit,
                                     std::int64_t offset = 0);

  std::vector<TrackInfo> fetchTracksForAlbum(std::int64_t albumId) const;

  /// By year and title of the album, then in album order.
  std::vector<TrackInfo> fetchTracksForArtist(std::int64_t artistId, std::int64_t limit = -1,
                                              std::int64_t offset = 0) const;

  /// In the order of the ids; those that are not in the library are passed over.
  std::vector<TrackInfo> fetchTracks(const std::vector<std::int64_t>& ids) const;

  std::int64_t countTracks() const;
  LibraryCounts counts() const;

  /// Returns when the orders of all listings that were asked for so far are ready.
  void waitUntilPrepared() { _orders.waitUntilPrepared(); }

 private:
  std::vector<TrackInfo> page(const TrackListing& listing, std::int64_t limit, std::int64_t offset);

  const DatabaseHandle& _database;
  TrackOrderCache _orders{_database};
};

}  // namespace velorin
