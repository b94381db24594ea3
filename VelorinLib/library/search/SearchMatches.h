// The rows of tracks_fts that a search found.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

namespace velorin {

/// Row ids with their rank: the lower, the more relevant. 16 bytes a match; lives for one search.
class SearchMatches {
 public:
  struct Match {
    std::int64_t id;
    double rank;
    bool operator==(const Match&) const = default;
  };

  SearchMatches() = default;
  /// In ascending order of their ids.
  explicit SearchMatches(std::vector<Match> matches) : _matches(std::move(matches)) {}

  /// By id.
  const std::vector<Match>& all() const noexcept { return _matches; }
  std::size_t size() const noexcept { return _matches.size(); }
  bool isEmpty() const noexcept { return _matches.empty(); }
  bool contains(std::int64_t id) const noexcept { return find(id) != nullptr; }

  /// By rank, equal ranks by id: as "ORDER BY rank" returns them. A limit below 0: all.
  std::vector<std::int64_t> byRelevance(std::int64_t limit, std::int64_t offset = 0) const;
  /// Those of the ids that matched, once each, in the same order.
  std::vector<std::int64_t> byRelevance(std::vector<std::int64_t> among) const;
  std::vector<std::int64_t> newestFirst(std::int64_t limit, std::int64_t offset = 0) const;

 private:
  const Match* find(std::int64_t id) const noexcept;

  std::vector<Match> _matches;
};

}  // namespace velorin
