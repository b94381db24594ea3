// The focus filter as a condition of a statement.
//
// Pure functions, any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "library/sqlite/Value.h"
#include "records/FocusFilter.h"

namespace velorin {

/// A piece of a statement and the values of its question marks.
struct SqlFragment {
  std::string text;
  sqlite::Values arguments;
};

/// The condition over "tracks" and "albums" that the filter stands for, such as
/// "(tracks.genre = ? COLLATE NOCASE) AND albums.year IN (?,?)". Empty when no category holds a
/// value. A column that is NULL meets no condition, not even an inverted one.
std::optional<SqlFragment> focusSQL(const FocusFilter& filter);
/// Empty without a filter, too.
std::optional<SqlFragment> focusSQL(const std::optional<FocusFilter>& filter);

/// The text with every "<table>." as "<alias>.", for statements that give a table another name.
std::string withAlias(std::string text, std::string_view table, std::string_view alias);

}  // namespace velorin
