#include "library/queries/FocusSQL.h"

#include <charconv>
#include <cmath>

namespace velorin {
namespace {

const char* columnOf(FocusCategory category) {
  switch (category) {
    case FocusCategory::genre:
      return "tracks.genre";
    case FocusCategory::year:
      return "albums.year";
    case FocusCategory::format:
      return "tracks.format";
    case FocusCategory::sampleRate:
      return "tracks.sampleRate";
    case FocusCategory::bitDepth:
      break;
  }
  return "tracks.bitDepth";
}

bool isText(FocusCategory category) {
  return category == FocusCategory::genre || category == FocusCategory::format;
}

template <class Number>
std::optional<Number> readAs(const std::string& text) {
  Number number{};
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || stop != end) return std::nullopt;
  return number;
}

sqlite::Value numberOrText(const std::string& text) {
  if (const auto integer = readAs<std::int64_t>(text)) return *integer;
  // SQLite would take a NaN for NULL, and nothing is NOT IN a list with a NULL.
  const auto real = readAs<double>(text);
  if (real && std::isfinite(*real)) return *real;
  return text;
}

void appendTexts(SqlFragment& fragment, const char* column, const FocusRule& rule) {
  // SQLite makes one IN of several equalities of an indexed column, and forgets the COLLATE on
  // their right sides (so does 3.40). The plus keeps it from the index, and with that from the IN.
  const char* const guard = rule.values.size() > 1 && !rule.inverted ? "+" : "";
  const char* separator = "(";
  for (const std::string& value : rule.values) {
    fragment.text += separator;
    fragment.text += guard;
    fragment.text += column;
    fragment.text += rule.inverted ? " != ? COLLATE NOCASE" : " = ? COLLATE NOCASE";
    fragment.arguments.emplace_back(value);
    separator = rule.inverted ? " AND " : " OR ";
  }
  fragment.text += ")";
}

void appendNumbers(SqlFragment& fragment, const char* column, const FocusRule& rule) {
  fragment.text += column;
  fragment.text += rule.inverted ? " NOT IN (" : " IN (";
  fragment.text += sqlite::placeholders(rule.values.size()) + ")";
  for (const std::string& value : rule.values) fragment.arguments.push_back(numberOrText(value));
}

}  // namespace

std::optional<SqlFragment> focusSQL(const FocusFilter& filter) {
  SqlFragment fragment;
  for (const auto& [category, rule] : filter.rules) {
    if (rule.values.empty()) continue;
    if (!fragment.text.empty()) fragment.text += " AND ";
    const auto append = isText(category) ? &appendTexts : &appendNumbers;
    append(fragment, columnOf(category), rule);
  }
  if (fragment.text.empty()) return std::nullopt;
  return fragment;
}

std::optional<SqlFragment> focusSQL(const std::optional<FocusFilter>& filter) {
  return filter ? focusSQL(*filter) : std::nullopt;
}

std::string withAlias(std::string text, std::string_view table, std::string_view alias) {
  const std::string from = std::string(table) + ".";
  const std::string to = std::string(alias) + ".";
  for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
    text.replace(at, from.size(), to);
  }
  return text;
}

}  // namespace velorin
