// The list of artists, a page at a time.
#pragma once

#include "library/DatabaseHandle.h"
#include "library/queries/ListingCache.h"
#include "records/FocusFilter.h"
#include "records/Sorts.h"
#include "records/TrackInfo.h"

namespace velorin {

/// An artist's figures are those of the tracks that it plays, inside the focus where there is one.
/// They take a walk over all tracks, so they are kept until the library changes: a page then costs
/// only the names on it.
class ArtistListings {
 public:
  explicit ArtistListings(const DatabaseHandle& database) : _database(database) {}

  /// The artists that have tracks. A limit below 0 means all rows. Any thread but the render
  /// thread; errors are thrown as VelorinDatabaseError.
  std::vector<ArtistInfo> fetchArtistInfos(const ArtistSort& sort,
                                           const std::optional<FocusFilter>& focus,
                                           std::int64_t limit, std::int64_t offset = 0);

 private:
  struct Key {
    ArtistSort sort;
    std::optional<FocusFilter> focus;
    bool operator==(const Key&) const = default;
  };
  /// An ArtistInfo without the name.
  struct Totals {
    std::int64_t artistId = 0;
    int albumCount = 0;
    int trackCount = 0;
    double duration = 0;
  };

  /// All artists with their totals, in the order of the names.
  static std::vector<Totals> aggregate(sqlite::Reader& reader,
                                       const std::optional<FocusFilter>& focus);
  static std::vector<Totals> reordered(std::vector<Totals> byName, const ArtistSort& sort);
  static std::vector<ArtistInfo> named(sqlite::Reader& reader, std::span<const Totals> page);

  const DatabaseHandle& _database;
  ListingCache<Key, Totals> _cache;
};

}  // namespace velorin
