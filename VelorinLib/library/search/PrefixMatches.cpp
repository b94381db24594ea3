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

  void add(const std::vector<FtsPosting>& postings) {
    unsigned beyond = 0;
    for (const FtsPosting& posting : postings) {
      const auto index = static_cast<std::uint64_t>(posting.row - _first);
      if (index >= _counts.size()) {
        // A row that is gone may have been the first or the last.
        if (posting.count == 0) continue;
        throw UnknownFtsFormat();
      }
      const std::uint64_t sum = std::uint64_t{_counts[index]} + posting.count;
      _counts[index] = static_cast<std::uint8_t>(sum);
      beyond |= static_cast<unsigned>(sum > 0xff);
    }
    if (beyond != 0) throw UnknownFtsFormat();
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

/// Adds what all segments say of a prefix. For a term that several hold, entries of newer segments
/// hide those of older ones.
void collect(sqlite::Reader& reader, const std::vector<FtsSegment>& segments,
             const std::string& prefix, Occurrences& occurrences) {
  std::vector<std::unique_ptr<FtsSegmentCursor>> cursors;  // newest first
  for (const FtsSegment& segment : segments) {
    auto cursor = std::make_unique<FtsSegmentCursor>(reader, segment, prefix);
    if (cursor->next()) cursors.push_back(std::move(cursor));
  }
  const auto byTerm = [](const auto& one, const auto& other) {
    return one->term() < other->term();
  };
  std::vector<FtsPosting> united;
  std::vector<FtsPosting> both;
  while (!cursors.empty()) {
    const std::string term = (*std::ranges::min_element(cursors, byTerm))->term();
    const std::vector<FtsPosting>* rows = nullptr;
    for (const auto& cursor : cursors) {
      if (cursor->term() != term) continue;
      if (rows == nullptr) {
        rows = &cursor->postings();
        continue;
      }
      // Of equal elements a union takes the first list's.
      both.clear();
      std::ranges::set_union(*rows, cursor->postings(), std::back_inserter(both), {},
                             &FtsPosting::row, &FtsPosting::row);
      united.swap(both);
      rows = &united;
    }
    occurrences.add(*rows);
    std::erase_if(cursors, [&](auto& cursor) { return cursor->term() == term && !cursor->next(); });
  }
}

/// Rows that have all prefixes so far, and how often they have each.
struct Candidates {
  std::vector<std::uint32_t> rows;                ///< indexes, ascending
  std::vector<std::vector<std::uint8_t>> counts;  ///< one list a prefix, one element a row
  std::vector<std::size_t> hits;                  ///< rows of the table with the prefix
};

void begin(Candidates& candidates, const Occurrences& occurrences) {
  const std::size_t hits = occurrences.rows();
  candidates.hits.push_back(hits);
  candidates.rows.reserve(hits);
  candidates.counts.emplace_back().reserve(hits);
  occurrences.each([&](std::size_t index) {
    candidates.rows.push_back(static_cast<std::uint32_t>(index));
    candidates.counts[0].push_back(occurrences[index]);
  });
}

void narrow(Candidates& candidates, const Occurrences& occurrences) {
  candidates.hits.push_back(occurrences.rows());
  candidates.counts.emplace_back(candidates.rows.size());
  std::size_t kept = 0;
  for (std::size_t i = 0; i < candidates.rows.size(); ++i) {
    const std::uint8_t count = occurrences[candidates.rows[i]];
    if (count == 0) continue;
    candidates.rows[kept] = candidates.rows[i];
    for (auto& list : candidates.counts) list[kept] = list[i];
    candidates.counts.back()[kept] = count;
    ++kept;
  }
  candidates.rows.resize(kept);
  for (auto& list : candidates.counts) list.resize(kept);
}

double inverseFrequency(double rows, double hits) {
  const double idf = std::log((rows - hits + 0.5) / (hits + 0.5));
  return idf <= 0.0 ? kLeastIDF : idf;
}

SearchMatches ranked(const Candidates& candidates, const RowSizes& sizes, const FtsTotals& totals) {
  const double meanTokens = static_cast<double>(totals.tokens) / static_cast<double>(totals.rows);
  // By the number of tokens, for those that most rows have.
  const auto lengthTerm = [&](unsigned tokens) {
    const double length = tokens;
    return kSaturation * (1 - kLengthWeight + kLengthWeight * length / meanTokens);
  };
  std::array<double, 256> lengthTerms{};
  for (unsigned i = 0; i < lengthTerms.size(); ++i) lengthTerms[i] = lengthTerm(i);
  std::vector<double> idf;
  for (const std::size_t hits : candidates.hits) {
    idf.push_back(inverseFrequency(static_cast<double>(totals.rows), static_cast<double>(hits)));
  }

  SearchMatches matches;
  matches.reserve(candidates.rows.size());
  for (std::size_t i = 0; i < candidates.rows.size(); ++i) {
    const unsigned tokens = sizes.tokens(candidates.rows[i]);
    if (tokens == 0) throw UnknownFtsFormat();
    const double length = tokens < lengthTerms.size() ? lengthTerms[tokens] : lengthTerm(tokens);
    double score = 0.0;
    for (std::size_t phrase = 0; phrase < idf.size(); ++phrase) {
      const double count = candidates.counts[phrase][i];
      score += idf[phrase] * ((count * (kSaturation + 1.0)) / (count + length));
    }
    matches.add(sizes.firstRow() + candidates.rows[i], -1.0 * score);
  }
  return matches;
}

}  // namespace

SearchMatches matchesOfPrefixes(sqlite::Reader& reader, const RowSizes& sizes,
                                const std::vector<std::string>& prefixes) {
  const FtsTotals totals = ftsTotals(reader);
  const std::vector<FtsSegment> segments = ftsSegments(reader);
  Occurrences occurrences(sizes);
  Candidates candidates;
  for (std::size_t i = 0; i < prefixes.size(); ++i) {
    if (i > 0) occurrences.clear();
    collect(reader, segments, prefixes[i], occurrences);
    i == 0 ? begin(candidates, occurrences) : narrow(candidates, occurrences);
    if (candidates.rows.empty()) return {};
  }
  return ranked(candidates, sizes, totals);
}

}  // namespace velorin
