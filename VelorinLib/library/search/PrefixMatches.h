// A search by beginnings of words, answered from the inverted index itself.
#pragma once

#include <string>
#include <vector>

#include "library/search/RowSizes.h"
#include "library/search/SearchMatches.h"

namespace velorin {

/// The rows in which a term begins with each of the prefixes, with the rank that FTS5 gives them.
///
/// The rank is FTS5's default, Okapi BM25 with k1 = 1.2 and b = 0.75 turned negative, as SQLite's
/// documentation of FTS5 gives it under "The bm25() function"; with f the occurrences of a phrase
/// in a row of D tokens, avgdl the mean of D, N the number of rows and n of those with the phrase:
///
///   rank = -sum over the phrases of IDF · f (k1 + 1) / (f + k1 (1 - b + b D / avgdl)),
///   IDF  = ln((N - n + 0.5) / (n + 0.5)), or 1e-6 where that is not positive.
///
/// It is computed by the same operations in the same order, so that equal ranks stay equal and all
/// ranks are those of FTS5 to the last bit. Prefixes are those of SearchPattern; there is one at
/// least. Throws UnknownFtsFormat.
///
/// Meanwhile takes a byte for each id of RowSizes, and 16 bytes a match of the first prefix.
SearchMatches matchesOfPrefixes(sqlite::Reader& reader, const RowSizes& sizes,
                                const std::vector<std::string>& prefixes);

}  // namespace velorin
