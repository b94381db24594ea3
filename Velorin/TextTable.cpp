#include "TextTable.h"

#include <algorithm>

#include "Terminal.h"

namespace velorin {
namespace {

constexpr int kGap = 2;

std::string cutTo(const std::string& cell, const TextColumn& column, int width) {
  return column.cut == TextColumn::Cut::atStart ? terminal::fittedEnd(cell, width)
                                                : terminal::fitted(cell, width);
}

}  // namespace

std::vector<int> TextTable::widths(int width) const {
  std::vector<int> widths(_columns.size(), 0);
  for (const auto& row : _rows) {
    for (std::size_t i = 0; i < widths.size(); ++i) {
      widths[i] = std::max(widths[i], terminal::columnsTaken(row[i]));
    }
  }
  int excess = -kGap - width;
  for (const int each : widths) excess += each > 0 ? each + kGap : 0;
  while (excess > 0) {
    // The widest column gives way until it is no wider than the next one.
    std::size_t widest = widths.size();
    int next = 0;
    for (std::size_t i = 0; i < widths.size(); ++i) {
      if (_columns[i].cut == TextColumn::Cut::never || widths[i] <= _columns[i].least) continue;
      if (widest == widths.size() || widths[i] > widths[widest]) {
        next = widest == widths.size() ? 0 : widths[widest];
        widest = i;
      } else {
        next = std::max(next, widths[i]);
      }
    }
    if (widest == widths.size()) break;
    const int kept = std::max({_columns[widest].least, next - 1, widths[widest] - excess});
    const int cut = std::max(1, widths[widest] - kept);
    widths[widest] -= cut;
    excess -= cut;
  }
  return widths;
}

std::vector<std::string> TextTable::lines(int width) const {
  const std::vector<int> columns = widths(width);
  std::vector<std::string> lines;
  for (const auto& row : _rows) {
    std::string line;
    std::size_t pending = 0;  // spaces that only a further cell makes necessary
    for (std::size_t i = 0; i < row.size(); ++i) {
      if (columns[i] == 0) continue;
      const std::string cell = cutTo(row[i], _columns[i], columns[i]);
      const auto padding = static_cast<std::size_t>(columns[i] - terminal::columnsTaken(cell));
      if (!cell.empty()) {
        line.append(pending + (_columns[i].alignRight ? padding : 0), ' ');
        line += cell;
        pending = 0;
      }
      pending += kGap + (cell.empty() || !_columns[i].alignRight ? padding : 0);
    }
    lines.push_back(terminal::fitted(line, width));
  }
  return lines;
}

}  // namespace velorin
