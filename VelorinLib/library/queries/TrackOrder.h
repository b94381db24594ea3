// Putting all tracks of a listing into its order, without a statement that holds the queue up.
//
// The plain statement joins and sorts every row each time a page is asked for. Here the sort keys
// are read once, in short reads, and sorted in memory away from the connection. The order is that
// of the statement's ORDER BY with tracks.id as the last tie-break.
#pragma once

#include <string>
#include <unordered_map>

#include "library/queries/FocusSQL.h"
#include "library/queries/TrackIdList.h"
#include "library/sqlite/Connection.h"
#include "records/Sorts.h"

namespace velorin {

/// Which tracks, in which order. No sort: newest id first. No filter: all. The filter's text calls
/// the tables tracks, albums and artists.
struct TrackListing {
  std::optional<TrackSort> sort;
  std::optional<SqlFragment> filter;
};

/// "\nWHERE …" of a listing's filter, empty without one.
std::string whereText(const TrackListing& listing);
/// "\nORDER BY …" of a listing, down to the last tie-break.
std::string orderByText(const TrackListing& listing);

/// Collects the keys of a listing, then sorts them. One thread at a time; about 40 bytes a track
/// while it lives, and the folded text where the sort is by a text of the track's own.
class TrackOrder {
 public:
  explicit TrackOrder(TrackListing listing);

  /// Reads the ranks of all artists and albums. First of all.
  void readParents(sqlite::Reader& reader);
  /// Reads the keys of the next tracks, some 50,000; false when there are no more.
  bool readTracks(sqlite::Reader& reader);
  /// Sorts what was read. Needs no connection.
  TrackIdList sorted();

 private:
  /// Sort keys as numbers that compare as the columns do, in the order of comparison.
  struct Key {
    std::uint64_t primary;  ///< of the sort's own column, turned round for a descending sort
    std::uint64_t parents;  ///< rank of the artist, then of the album by year and title
    std::uint64_t place;    ///< disc, then track number
    std::uint64_t cueStart;
    std::int64_t id;

    auto operator<=>(const Key&) const = default;
  };
  struct AlbumKey {
    std::uint32_t rank;     ///< by year and title
    std::uint64_t primary;  ///< of a sort by a column of albums
  };

  bool sortsByText() const;
  void addText(std::string_view text);
  void rankTexts();
  std::uint64_t primaryOf(const sqlite::Row& row, std::uint32_t artist,
                          const AlbumKey& album) const;

  TrackListing _listing;
  std::string _trackStatement;
  std::unordered_map<std::int64_t, std::uint32_t> _artists;
  std::unordered_map<std::int64_t, AlbumKey> _albums;
  std::int64_t _lastId;
  std::vector<Key> _keys;

  // Texts of a sort by text, in the order of _keys, folded as NOCASE folds.
  std::string _texts;
  std::vector<std::size_t> _textStarts;
};

}  // namespace velorin
