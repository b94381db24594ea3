#include "library/search/SearchMatches.h"

#include <algorithm>

namespace velorin {
namespace {

using Match = SearchMatches::Match;

bool isBetter(const Match& one, const Match& other) {
  return one.rank != other.rank ? one.rank < other.rank : one.id < other.id;
}

/// The best `count` of them, best first, without sorting the rest.
std::vector<Match> best(const std::vector<Match>& all, std::size_t count) {
  std::vector<Match> kept(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(count));
  if (count == 0) return kept;
  if (count < all.size()) {
    // The worst of those kept is on top.
    std::make_heap(kept.begin(), kept.end(), isBetter);
    for (std::size_t i = count; i < all.size(); ++i) {
      // Of equal rank, those before have the lower ids.
      if (!(all[i].rank < kept.front().rank)) continue;
      std::pop_heap(kept.begin(), kept.end(), isBetter);
      kept.back() = all[i];
      std::push_heap(kept.begin(), kept.end(), isBetter);
    }
  }
  std::sort(kept.begin(), kept.end(), isBetter);
  return kept;
}

/// How many of `size` rows come before the end of a page, and before its beginning.
struct Page {
  Page(std::size_t size, std::int64_t limit, std::int64_t offset)
      : from(std::min(size, static_cast<std::size_t>(std::max<std::int64_t>(offset, 0)))),
        to(limit < 0 ? size : from + std::min(size - from, static_cast<std::size_t>(limit))) {}

  std::size_t from;
  std::size_t to;
};

}  // namespace

const Match* SearchMatches::find(std::int64_t id) const noexcept {
  const auto found = std::ranges::lower_bound(_matches, id, {}, &Match::id);
  return found != _matches.end() && found->id == id ? &*found : nullptr;
}

std::vector<std::int64_t> SearchMatches::byRelevance(std::int64_t limit,
                                                     std::int64_t offset) const {
  const Page page(_matches.size(), limit, offset);
  const std::vector<Match> ordered = best(_matches, page.to);
  std::vector<std::int64_t> ids;
  for (std::size_t i = page.from; i < page.to; ++i) ids.push_back(ordered[i].id);
  return ids;
}

std::vector<std::int64_t> SearchMatches::byRelevance(std::vector<std::int64_t> among) const {
  std::vector<Match> found;
  std::ranges::sort(among);
  among.erase(std::unique(among.begin(), among.end()), among.end());
  for (const std::int64_t id : among) {
    if (const Match* match = find(id)) found.push_back(*match);
  }
  return SearchMatches(std::move(found)).byRelevance(-1);
}

std::vector<std::int64_t> SearchMatches::newestFirst(std::int64_t limit,
                                                     std::int64_t offset) const {
  const Page page(_matches.size(), limit, offset);
  std::vector<std::int64_t> ids;
  for (std::size_t i = page.from; i < page.to; ++i) {
    ids.push_back(_matches[_matches.size() - 1 - i].id);
  }
  return ids;
}

}  // namespace velorin
