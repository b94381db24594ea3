// Reads the inverted index of tracks_fts as FTS5 keeps it in the table tracks_fts_data.
//
// FTS5 itself gives out a prefix's rows one at a time through a virtual table, after it has merged
// all their position lists; with hundreds of thousands of rows that alone takes longer than a
// whole search may. This walk decodes the same bytes in one go. It only reads, and knows one
// version of the format, 4, which is what SQLite writes for a table like ours; the head comment of
// fts5_index.c in SQLite's public-domain source describes it. Whatever is not as expected throws
// UnknownFtsFormat, upon which the caller asks FTS5.
//
// The index is a list of segments, each a sorted run of terms in pages of some 4 KB. A term's rows
// may be spread over several segments; of two entries for one term and row the one in the newer
// segment holds, and an entry without positions there means that the row no longer has the term.
#pragma once

#include "library/sqlite/Connection.h"

namespace velorin {

/// The index is not of the form that is known here.
struct UnknownFtsFormat : std::exception {};

/// How many rows and tokens the full-text table holds.
struct FtsTotals {
  std::int64_t rows = 0;
  std::int64_t tokens = 0;
};
FtsTotals ftsTotals(sqlite::Reader& reader);

/// The sum of a list of numbers as FTS5 writes it, such as a row's tokens in each column.
std::int64_t ftsSum(std::span<const std::byte> numbers);

struct FtsSegment {
  std::int64_t id;
  std::int64_t firstPage;
  std::int64_t lastPage;
};

/// The segments of the index, newest first.
std::vector<FtsSegment> ftsSegments(sqlite::Reader& reader);

/// A row that has, or in a newer segment no longer has, a term.
struct FtsPosting {
  std::int64_t row;
  std::uint32_t count;  ///< how often; 0: the term is gone
};

/// Walks over those terms of one segment that begin with a prefix, in the order of their bytes, and
/// over the rows of each, some page's worth at a time. In a read, on its thread.
class FtsSegmentCursor {
 public:
  FtsSegmentCursor(sqlite::Reader& reader, const FtsSegment& segment, std::string_view prefix);

  /// Advances to the next term; false at the end.
  bool nextTerm();
  /// With the byte that FTS5 puts before each term.
  const std::string& term() const noexcept { return _term; }

  /// Advances to the next rows of the term, one at least; false at the end.
  bool nextRows();
  /// Rows ascending, across all calls. Valid until the next call.
  std::span<const FtsPosting> rows() const noexcept {
    return std::span(_rows).first(_rows.size() - static_cast<std::size_t>(_pending > 0));
  }

 private:
  bool loadPage();
  void readTerm();
  void readRows(std::size_t from, std::size_t end);
  void readRest(std::size_t end);
  std::size_t termOffset(std::size_t index) const;

  std::string _prefix;
  std::int64_t _nextPage;
  sqlite::Cursor _pages;

  // The page at hand: header, content up to _contentEnd, offsets of the terms in it.
  bool _isAtEnd = false;
  std::span<const std::byte> _page;
  std::size_t _contentEnd = 0;
  std::size_t _firstRow = 0;  ///< of a doclist that goes on from the page before; 0: none
  std::vector<std::size_t> _termOffsets;
  std::size_t _nextTerm = 0;

  std::string _term;
  std::size_t _doclist = 0;  ///< where it begins on the page; 0: on the next one
  bool _hasMoreRows = false;
  std::vector<FtsPosting> _rows;
  std::int64_t _lastRow = 0;
  std::size_t _pending = 0;  ///< bytes of the last row's positions that are on the next page
  bool _columnNext = false;  ///< inside a position list: the next number is that of a column
};

}  // namespace velorin
