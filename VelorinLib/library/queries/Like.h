// User text inside a LIKE pattern.
#pragma once

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

}  // namespace velorin
