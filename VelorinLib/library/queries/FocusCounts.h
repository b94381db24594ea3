// How many tracks there are to each value that a focus can be set to.
#pragma once

#include "library/DatabaseHandle.h"
#include "library/queries/ListingCache.h"
#include "records/FocusFilter.h"

namespace velorin {

/// A value in the form in which a FocusRule holds it.
struct FocusCount {
  std::string value;
  std::int64_t count = 0;

  bool operator==(const FocusCount&) const = default;
};

/// Counts over the whole library, kept until it changes. Any thread but the render thread.
class FocusCounts {
 public:
  explicit FocusCounts(const DatabaseHandle& database) : _database(database) {}

  /// Genres and formats by name without case, one spelling for those that differ in nothing else;
  /// years from the latest; rates and depths from the lowest. Years, rates and depths of 0 are
  /// left out. Throws VelorinDatabaseError.
  std::vector<FocusCount> fetchCounts(FocusCategory category);

 private:
  using Counts = ListingCache<FocusCategory, FocusCount>::Rows;
  Counts countsOf(sqlite::Reader& reader, const std::shared_ptr<ConnectionQueue>& queue,
                  FocusCategory category);

  const DatabaseHandle& _database;
  ListingCache<FocusCategory, FocusCount> _cache;
};

}  // namespace velorin
