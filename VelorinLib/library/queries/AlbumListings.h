// Lists of albums.
#pragma once

#include <unordered_map>

#include "library/DatabaseHandle.h"
#include "library/queries/ListingCache.h"
#include "records/FocusFilter.h"
#include "records/Sorts.h"
#include "records/TrackInfo.h"

namespace velorin {

/// With a focus, an album counts and sums only its tracks inside it, and falls away when none is
/// left. Any thread but the render thread; errors are thrown as VelorinDatabaseError.
class AlbumListings {
 public:
  explicit AlbumListings(const DatabaseHandle& database) : _database(database) {}

  /// All albums that have tracks. The figures, which take a walk over all tracks, and the orders
  /// are kept until the library changes.
  std::vector<AlbumInfo> fetchAlbumInfos(const AlbumSort& sort,
                                         const std::optional<FocusFilter>& focus);

  /// The albums whose own artist this is, by year and title.
  std::vector<AlbumInfo> fetchAlbumInfosForArtist(std::int64_t artistId) const;

  /// The albums whose title or artist's name holds the text, whatever the case of A to Z.
  std::vector<AlbumInfo> searchAlbums(std::string_view text, const AlbumSort& sort,
                                      const std::optional<FocusFilter>& focus) const;

  /// One album for each artist that has albums of its own, to show a cover: artist id, album id.
  std::unordered_map<std::int64_t, std::int64_t> fetchArtworkAlbumIds(
      const std::vector<std::int64_t>& artistIds) const;

 private:
  /// What an AlbumInfo says of the album's tracks.
  struct Totals {
    std::int64_t albumId = 0;
    double duration = 0;
    int trackCount = 0;
    std::optional<int> maxSampleRate = std::nullopt;
    std::optional<int> maxBitDepth = std::nullopt;
  };

  /// Of the albums that have tracks, by id.
  static std::vector<Totals> aggregate(sqlite::Reader& reader,
                                       const std::optional<FocusFilter>& focus);
  static std::vector<std::int64_t> idsInOrder(sqlite::Reader& reader, const AlbumSort& sort);
  static std::vector<AlbumInfo> infosOf(sqlite::Reader& reader, const std::vector<Totals>& totals);

  const DatabaseHandle& _database;
  ListingCache<std::optional<FocusFilter>, Totals> _totals;
  ListingCache<AlbumSort, std::int64_t> _orders;
};

}  // namespace velorin
