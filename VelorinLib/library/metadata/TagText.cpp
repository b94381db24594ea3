#include "library/metadata/TagText.h"

#include <algorithm>
#include <array>

#include "foundation/Text.h"

namespace velorin {
namespace {

constexpr std::array<std::string_view, 11> kPlaceholders = {
    "none", "n/a", "na", "unknown", "untitled", "various", "-", "--", "---", ".", ".."};

constexpr int kFirstYear = 1900;
constexpr int kLastYear = 2099;

/// The value of four ASCII digits at the position; nothing when they are something else.
std::optional<int> fourDigits(std::string_view text, std::size_t at) {
  int value = 0;
  for (std::size_t i = at; i < at + 4; ++i) {
    if (text[i] < '0' || text[i] > '9') return std::nullopt;
    value = value * 10 + (text[i] - '0');
  }
  return value;
}

}  // namespace

std::optional<std::string> cleanTag(std::string_view text) {
  const std::string_view trimmed = text::trimWhitespaceAndNewlines(text);
  if (trimmed.empty()) return std::nullopt;
  // Spares the lyrics and long comments the copy.
  if (trimmed.size() <= 8 &&
      std::ranges::find(kPlaceholders, text::lowercaseASCII(trimmed)) != kPlaceholders.end()) {
    return std::nullopt;
  }
  return std::string(trimmed);
}

std::optional<int> parseDateYear(std::string_view text) {
  // The year in front is the first group there is, so that one pass serves both rules.
  for (std::size_t i = 0; i + 4 <= text.size(); ++i) {
    const auto value = fourDigits(text, i);
    if (value && *value >= kFirstYear && *value <= kLastYear) return value;
  }
  return std::nullopt;
}

}  // namespace velorin
