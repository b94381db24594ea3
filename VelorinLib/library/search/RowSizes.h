// How many tokens each row of tracks_fts has: what relevance needs of every row that matches.
#pragma once

#include "library/sqlite/Connection.h"

namespace velorin {

/// Read in one walk over the table, some 60 ms for a million rows, and kept in two bytes a track as
/// long as the library does not change. Unchanging, any thread.
class RowSizes {
 public:
  /// Throws UnknownFtsFormat when the rows' ids lie so far apart, or a row is so long, that they do
  /// not fit this form.
  static RowSizes read(sqlite::Reader& reader);

  /// The ids of all rows lie from firstRow() on in a range of span().
  std::int64_t firstRow() const noexcept { return _firstRow; }
  std::size_t span() const noexcept { return _sizes.size(); }

  /// Of the row firstRow() + index; 0: there is no such row, or it has no words.
  unsigned tokens(std::size_t index) const noexcept { return _sizes[index]; }

 private:
  std::int64_t _firstRow = 0;
  std::vector<std::uint16_t> _sizes;
};

}  // namespace velorin
