// User text inside a LIKE pattern.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace velorin {

/// The text with a backslash before each backslash, percent sign and underscore, so that it stands
/// for itself in a pattern. The statement says ESCAPE '\'.
inline std::string escapedForLike(std::string_view text) {
  std::string escaped;
  escaped.reserve(text.size());
  for (const char each : text) {
    if (each == '\\' || each == '%' || each == '_') escaped += '\\';
    escaped += each;
  }
  return escaped;
}

/// The pattern that finds the text anywhere; nothing when no name can hold it: text in the library
/// has no NUL, and SQLite refuses longer patterns.
inline std::optional<std::string> likeAnywhere(std::string_view text) {
  constexpr std::size_t kLongest = 50'000;
  if (text.find('\0') != std::string_view::npos) return std::nullopt;
  std::string pattern = "%" + escapedForLike(text) + "%";
  if (pattern.size() > kLongest) return std::nullopt;
  return pattern;
}

}  // namespace velorin
