// The small questions that reading a folder's name asks of its text.
#pragma once

#include <optional>
#include <string_view>

namespace velorin::nametext {

/// All of these are pure and linear in what they look at. Text is UTF-8, positions are bytes.

inline bool isDigit(char c) noexcept {
  return c >= '0' && c <= '9';
}

/// The first position at or after `at` that does not hold white space.
std::size_t skipWhitespace(std::string_view text, std::size_t at) noexcept;

/// The first position at or after `at` that does not hold an ASCII digit.
std::size_t skipDigits(std::string_view text, std::size_t at) noexcept;

/// True when the text at the position is `lowercase` (ASCII, in lower case), in any case.
bool matchesIgnoringCase(std::string_view text, std::size_t at,
                         std::string_view lowercase) noexcept;

/// True when no letter, mark, number or "_" ends right before the position.
bool wordMayBegin(std::string_view text, std::size_t at) noexcept;

/// True when no letter, mark, number or "_" stands at the position.
bool wordMayEnd(std::string_view text, std::size_t at) noexcept;

/// "Artist - Album" at its first " - " that stands outside brackets: the position of the first
/// blank.
std::optional<std::size_t> findSeparator(std::string_view text) noexcept;

/// A field that is a year and nothing else: four digits from 1920 to 2029, white space around
/// them aside.
std::optional<int> parseYearField(std::string_view text) noexcept;

/// True for one or more ASCII digits and nothing else.
bool isNumber(std::string_view text) noexcept;

/// A text and the year that stood at its start or end.
struct TextAndYear {
  std::string_view text;    ///< trimmed where a year was taken off, else as it was
  std::optional<int> year;  ///< 1000 to 2029
};

/// Takes a year off a name: "(2001) Album", "Album [2001]" or "Album 2001". A name that is only a
/// year stays.
TextAndYear extractYear(std::string_view text) noexcept;

}  // namespace velorin::nametext
