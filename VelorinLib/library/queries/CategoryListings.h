// The lists of genres and composers.
#pragma once

#include "library/DatabaseHandle.h"
#include "library/queries/ListingCache.h"
#include "records/Sorts.h"
#include "records/TrackInfo.h"

namespace velorin {

/// Spellings that differ only in the case of A to Z count as one name, which is shown in the
/// spelling that comes first by its bytes. The figures take a walk over all tracks, so they are
/// kept until the library changes.
///
/// A limit below 0 means all rows. Any thread but the render thread; errors are thrown as
/// VelorinDatabaseError.
class CategoryListings {
 public:
  explicit CategoryListings(const DatabaseHandle& database) : _database(database) {}

  std::vector<GenreInfo> fetchGenreStats(const CategorySort& sort, std::int64_t limit,
                                         std::int64_t offset = 0);
  std::vector<ComposerInfo> fetchComposerStats(const CategorySort& sort, std::int64_t limit,
                                               std::int64_t offset = 0);

  /// Every spelling, ordered without case.
  std::vector<std::string> fetchAllGenres() const;
  std::vector<std::string> fetchAllComposers() const;

 private:
  struct Key {
    std::string column;
    CategorySort sort;
    bool operator==(const Key&) const = default;
  };

  std::vector<CategoryInfo> fetchStats(const std::string& column, const CategorySort& sort,
                                       std::int64_t limit, std::int64_t offset);
  std::vector<std::string> fetchAll(const std::string& column) const;

  const DatabaseHandle& _database;
  ListingCache<Key, CategoryInfo> _cache;
};

}  // namespace velorin
