#include "library/metadata/NameText.h"

#include <algorithm>

#include "foundation/Text.h"
#include "foundation/Unicode.h"

namespace velorin::nametext {
namespace {

bool isWord(char32_t c) noexcept {
  if (c < 0x80) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
  }
  return unicode::isAlphanumeric(c);
}

bool isOpener(char c) noexcept {
  return c == '(' || c == '[';
}
bool isCloser(char c) noexcept {
  return c == ')' || c == ']';
}

/// The year that four digits at the position name, from 1000 to 2029.
std::optional<int> yearAt(std::string_view text, std::size_t at) noexcept {
  if (at > text.size() || text.size() - at < 4) return std::nullopt;
  int value = 0;
  for (const char c : text.substr(at, 4)) {
    if (!isDigit(c)) return std::nullopt;
    value = value * 10 + (c - '0');
  }
  if (value < 1000 || value > 2029) return std::nullopt;
  return value;
}

}  // namespace

std::size_t skipWhitespace(std::string_view text, std::size_t at) noexcept {
  while (at < text.size()) {
    const auto c = static_cast<unsigned char>(text[at]);
    if (c > 0x20 && c < 0x80) break;
    const std::size_t length = text::decode(text, at).length;
    if (!text::trimWhitespaceAndNewlines(text.substr(at, length)).empty()) break;
    at += length;
  }
  return at;
}

std::size_t skipDigits(std::string_view text, std::size_t at) noexcept {
  while (at < text.size() && isDigit(text[at])) ++at;
  return at;
}

bool matchesIgnoringCase(std::string_view text, std::size_t at,
                         std::string_view lowercase) noexcept {
  if (at > text.size() || text.size() - at < lowercase.size()) return false;
  return std::equal(lowercase.begin(), lowercase.end(), text.begin() + static_cast<long>(at),
                    [](char want, char c) {
                      return want == (c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c);
                    });
}

bool wordMayBegin(std::string_view text, std::size_t at) noexcept {
  if (at == 0) return true;
  std::size_t start = at - 1;
  while (start > 0 && at - start < 4 && (text[start] & 0xC0) == 0x80) --start;
  return !isWord(text::decode(text, start).value);
}

bool wordMayEnd(std::string_view text, std::size_t at) noexcept {
  return at >= text.size() || !isWord(text::decode(text, at).value);
}

std::optional<std::size_t> findSeparator(std::string_view text) noexcept {
  int depth = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (isOpener(text[i])) ++depth;
    if (isCloser(text[i])) depth = std::max(0, depth - 1);
    if (depth == 0 && text.substr(i, 3) == " - ") return i;
  }
  return std::nullopt;
}

std::optional<int> parseYearField(std::string_view text) noexcept {
  text = text::trimWhitespaceAndNewlines(text);
  const auto year = text.size() == 4 ? yearAt(text, 0) : std::nullopt;
  return year && *year >= 1920 ? year : std::nullopt;
}

bool isNumber(std::string_view text) noexcept {
  return !text.empty() && skipDigits(text, 0) == text.size();
}

TextAndYear extractYear(std::string_view text) noexcept {
  const std::size_t size = text.size();
  const auto taken = [](std::string_view rest, std::optional<int> year) {
    return TextAndYear{text::trimWhitespaceAndNewlines(rest), year};
  };
  if (size >= 6 && isOpener(text[0]) && isCloser(text[5])) {
    const TextAndYear result = taken(text.substr(6), yearAt(text, 1));
    if (result.year && !result.text.empty()) return result;
  }
  if (size >= 6 && isCloser(text[size - 1]) && isOpener(text[size - 6])) {
    const TextAndYear result = taken(text.substr(0, size - 6), yearAt(text, size - 5));
    if (result.year && !result.text.empty()) return result;
  }
  if (size >= 5) {
    const TextAndYear result = taken(text.substr(0, size - 4), yearAt(text, size - 4));
    const bool isApart = result.text.data() + result.text.size() < text.data() + size - 4;
    if (result.year && isApart && !result.text.empty()) return result;
  }
  return {text, std::nullopt};
}

}  // namespace velorin::nametext
