#include "library/search/MatchFinder.h"

#include "library/search/FtsSegments.h"
#include "library/search/PrefixMatches.h"

namespace velorin {
namespace {

SearchMatches matchesByFts5(sqlite::Reader& reader, const SearchPattern& pattern) {
  std::vector<SearchMatches::Match> matches;
  reader.each(
      "SELECT rowid, rank FROM tracks_fts WHERE tracks_fts MATCH ?",
      [&](const sqlite::Row& row) {
        matches.push_back({row.get<std::int64_t>(0), row.get<double>(1)});
      },
      pattern.match());
  return SearchMatches(std::move(matches));
}

}  // namespace

std::shared_ptr<const RowSizes> MatchFinder::sizes(const std::shared_ptr<ConnectionQueue>& queue,
                                                   sqlite::Reader& reader) {
  const LibraryVersion version = queue->version(reader, static_cast<unsigned>(Facet::library));
  const MutexLock lock(_mutex);
  if (_queue.lock() == queue && _version == version) return _sizes;
  _queue.reset();
  _sizes.reset();
  try {
    _sizes = std::make_shared<const RowSizes>(RowSizes::read(reader));
  } catch (const UnknownFtsFormat&) {
    // Remembered as well.
  }
  _queue = queue;
  _version = version;
  return _sizes;
}

SearchMatches MatchFinder::find(const std::shared_ptr<ConnectionQueue>& queue,
                                sqlite::Reader& reader, const SearchPattern& pattern) {
  if (pattern.isEmpty()) return {};
  if (const auto& prefixes = pattern.prefixes()) {
    if (prefixes->empty()) return {};
    try {
      if (const auto rowSizes = sizes(queue, reader)) {
        return matchesOfPrefixes(reader, *rowSizes, *prefixes);
      }
    } catch (const UnknownFtsFormat&) {
      // FTS5 knows it.
    }
  }
  return matchesByFts5(reader, pattern);
}

}  // namespace velorin
