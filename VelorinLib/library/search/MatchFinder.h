// Finds the rows that match a pattern, the quick way where it can be gone.
#pragma once

#include <memory>

#include "foundation/Mutex.h"
#include "library/ConnectionQueue.h"
#include "library/queries/SearchPattern.h"
#include "library/search/RowSizes.h"
#include "library/search/SearchMatches.h"

namespace velorin {

/// Decodes the inverted index where the pattern and the index allow it, else lets FTS5 search;
/// both find the same with the same ranks. Keeps the row sizes (see RowSizes) until the library
/// changes. Any thread.
class MatchFinder {
 public:
  /// `reader` belongs to a read on `queue`. An empty pattern matches nothing.
  SearchMatches find(const std::shared_ptr<ConnectionQueue>& queue, sqlite::Reader& reader,
                     const SearchPattern& pattern);

 private:
  std::shared_ptr<const RowSizes> sizes(const std::shared_ptr<ConnectionQueue>& queue,
                                        sqlite::Reader& reader);

  Mutex _mutex;
  std::weak_ptr<ConnectionQueue> _queue GUARDED_BY(_mutex);  // of which _version speaks
  LibraryVersion _version GUARDED_BY(_mutex);
  std::shared_ptr<const RowSizes> _sizes GUARDED_BY(_mutex);  // empty: not to be had
};

}  // namespace velorin
