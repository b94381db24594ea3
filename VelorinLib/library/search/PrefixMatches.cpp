#include "library/search/PrefixMatches.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

#include "library/search/FtsSegments.h"

namespace velorin {
namespace {

constexpr double kSaturation = 1.2;     // k1
constexpr double kLengthWeight = 0.75;  // b
constexpr double kLeastIDF = 1e-6;

/// How often a prefix occurs in each row.
class Occurrences {
 public:
  explicit Occurrences(const RowSizes& sizes) : _first(sizes.firstRow()), _counts(sizes.span()) {}

  void add(std::span<const FtsPosting> postings) {
    std::uint64_t highest = 0;
    for (const FtsPosting& posting : postings) {
      const auto index = static_cast<std::uint64_t>(posting.row - _first);
      if (index >= _counts.size()) {
        // A row that is gone may have been the first or the last.
        if (posting.count == 0) continue;
        throw UnknownFtsFormat();
      }
      const std::uint64_t sum = std::uint64_t{_counts[index]} + posting.count;
      _counts[index] = static_cast<std::uint8_t>(sum);
      highest = std::max(highest, sum);
    }
    if (highest > std::numeric_limits<std::uint8_t>::max()) throw UnknownFtsFormat();
  }

  void clear() { std::ranges::fill(_counts, std::uint8_t{0}); }

  std::uint8_t operator[](std::size_t index) const noexcept { return _counts[index]; }
  std::size_t rows() const {
    return _counts.size() - static_cast<std::size_t>(std::ranges::count(_counts, std::uint8_t{0}));
  }

  /// Calls use(index) for each row that has the prefix.
  template <class Use>
  void each(Use&& use) const {
    std::size_t i = 0;
    // Most rows do not: eight at once.
    for (; i + 8 <= _counts.size(); i += 8) {
      std::uint64_t eight = 0;
      std::memcpy(&eight, &_counts[i], 8);
      if (eight == 0) continue;
      for (std::size_t j = i; j < i + 8; ++j) {
        if (_counts[j] != 0) use(j);
      }
    }
    for (; i < _counts.size(); ++i) {
      if (_counts[i] != 0) use(i);
    }
  }

 private:
  std::int64_t _first;
  std::vector<std::uint8_t> _counts;
};

/// The rows of one term in one segment, from the first that was not yet taken.
struct Stream {
  FtsSegmentCursor* cursor;
  std::span<const FtsPosting> rows;  ///< not empty

  /// Drops the first rows; false when none are left.
  bool drop(std::size_t count) {
    rows = rows.subspan(count);
    if (rows.empty() && cursor->nextRows()) rows = cursor->rows();
    return !rows.empty();
  }
};

/// Adds what the segments, newest first, say of one term: of entries for the same row the newest
/// holds. Most segments hold ranges of rows of their own, which are added as they come.
void addTerm(std::vector<Stream>& streams, Occurrences& occurrences) {
  while (!streams.empty()) {
    std::size_t lowest = 0;
    std::int64_t end = std::numeric_limits<std::int64_t>::max();  // first row of the others
    for (std::size_t i = 1; i < streams.size(); ++i) {
      const std::int64_t row = streams[i].rows[0].row;
      const std::int64_t least = streams[lowest].rows[0].row;
      if (row < least) lowest = i;
      end = std::min(end, std::max(row, least));
    }
    Stream& stream = streams[lowest];
    if (stream.rows[0].row == end) {
      occurrences.add(stream.rows.first(1));
      std::erase_if(streams,
                    [&](Stream& each) { return each.rows[0].row == end && !each.drop(1); });
      continue;
    }
    const auto below = std::ranges::lower_bound(stream.rows, end, {}, &FtsPosting::row);
    const auto count = static_cast<std::size_t>(below - stream.rows.begin());
    occurrences.add(stream.rows.first(count));
    if (!stream.drop(count)) streams.erase(streams.begin() + static_cast<std::ptrdiff_t>(lowest));
  }
}

/// Adds what all segments say of a prefix.
void collect(sqlite::Reader& reader, const std::vector<FtsSegment>& segments,
             const std::string& prefix, Occurrences& occurrences) {
  std::vector<std::unique_ptr<FtsSegmentCursor>> cursors;  // newest first
  for (const FtsSegment& segment : segments) {
    auto cursor = std::make_unique<FtsSegmentCursor>(reader, segment, prefix);
    if (cursor->nextTerm()) cursors.push_back(std::move(cursor));
  }
  std::vector<FtsSegmentCursor*> holders;  // of the term at hand
  std::vector<Stream> streams;
  while (!cursors.empty()) {
    holders.clear();
    for (const auto& cursor : cursors) {
      const int order = holders.empty() ? 0 : cursor->term().compare(holders[0]->term());
      if (order < 0) holders.clear();
      if (order <= 0) holders.push_back(cursor.get());
    }
    streams.clear();
    for (FtsSegmentCursor* holder : holders) {
      if (holder->nextRows()) streams.push_back({holder, holder->rows()});
    }
    addTerm(streams, occurrences);
    for (FtsSegmentCursor* holder : holders) {
      if (holder->nextTerm()) continue;
      std::erase_if(cursors, [&](const auto& cursor) { return cursor.get() == holder; });
    }
  }
}

/// What the terms of the sum have in common.
class Relevance {
 public:
  Relevance(const RowSizes& sizes, const FtsTotals& totals)
      : _sizes(sizes),
        _rows(static_cast<double>(totals.rows)),
        _meanTokens(static_cast<double>(totals.tokens) / static_cast<double>(totals.rows)) {
    for (unsigned i = 0; i < _ofLength.size(); ++i) _ofLength[i] = ofLength(i);
  }

  double idf(std::size_t rowsWithPhrase) const {
    const auto hits = static_cast<double>(rowsWithPhrase);
    const double idf = std::log((_rows - hits + 0.5) / (hits + 0.5));
    return idf <= 0.0 ? kLeastIDF : idf;
  }

  /// A phrase's part, given its IDF and its occurrences in the row of an index of RowSizes.
  double part(double idf, double occurrences, std::size_t row) const {
    const unsigned tokens = _sizes.tokens(row);
    if (tokens == 0) throw UnknownFtsFormat();
    const double length = tokens < _ofLength.size() ? _ofLength[tokens] : ofLength(tokens);
    return idf * ((occurrences * (kSaturation + 1.0)) / (occurrences + length));
  }

 private:
  double ofLength(double tokens) const {
    return kSaturation * (1 - kLengthWeight + kLengthWeight * tokens / _meanTokens);
  }

  const RowSizes& _sizes;
  double _rows;
  double _meanTokens;
  std::array<double, 128> _ofLength{};  // by the number of tokens; few rows have more
};

}  // namespace

SearchMatches matchesOfPrefixes(sqlite::Reader& reader, const RowSizes& sizes,
                                const std::vector<std::string>& prefixes) {
  const std::vector<FtsSegment> segments = ftsSegments(reader);
  const Relevance relevance(sizes, ftsTotals(reader));
  Occurrences occurrences(sizes);
  std::vector<SearchMatches::Match> matches;  // with the sum so far for a rank
  for (std::size_t i = 0; i < prefixes.size(); ++i) {
    if (i > 0) occurrences.clear();
    collect(reader, segments, prefixes[i], occurrences);
    const std::size_t rows = occurrences.rows();
    const double idf = relevance.idf(rows);
    if (i == 0) {
      matches.reserve(rows);
      occurrences.each([&](std::size_t row) {
        matches.push_back({sizes.firstRow() + static_cast<std::int64_t>(row),
                           relevance.part(idf, occurrences[row], row)});
      });
    } else {
      std::erase_if(matches, [&](SearchMatches::Match& match) {
        const auto row = static_cast<std::size_t>(match.id - sizes.firstRow());
        if (occurrences[row] == 0) return true;
        match.rank += relevance.part(idf, occurrences[row], row);
        return false;
      });
    }
    if (matches.empty()) break;
  }
  for (SearchMatches::Match& match : matches) match.rank = -1.0 * match.rank;
  return SearchMatches(std::move(matches));
}

}  // namespace velorin
