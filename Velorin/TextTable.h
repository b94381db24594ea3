// Rows of text in aligned columns, cut to the width of a terminal.
#pragma once

#include <string>
#include <vector>

namespace velorin {

/// How a column behaves.
struct TextColumn {
  enum class Cut {
    never,
    atEnd,    ///< "Some long ti…"
    atStart,  ///< "…um/03 Song.flac": the end of a path tells more than its beginning
  };

  bool alignRight = false;
  Cut cut = Cut::never;
  int least = 0;  ///< columns of the terminal that it keeps when it is cut
};

/// Widths are counted in terminal columns, so that wide and combining characters line up.
class TextTable {
 public:
  explicit TextTable(std::vector<TextColumn> columns) : _columns(std::move(columns)) {}

  /// One cell for each column; escaped for a terminal.
  void addRow(std::vector<std::string> cells) { _rows.push_back(std::move(cells)); }

  bool isEmpty() const noexcept { return _rows.empty(); }

  /// One line for each row, two spaces between the columns, none at the end. Where the widest rows
  /// exceed `width`, the columns that may be cut give way, the widest first; where that is not
  /// enough, the end of the line does. A column in which all cells are empty is left out.
  std::vector<std::string> lines(int width) const;

 private:
  std::vector<int> widths(int width) const;

  std::vector<TextColumn> _columns;
  std::vector<std::vector<std::string>> _rows;
};

}  // namespace velorin
