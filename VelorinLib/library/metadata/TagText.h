// What a tag's text means.
#pragma once

#include <concepts>
#include <optional>
#include <string>
#include <string_view>

namespace velorin {

inline constexpr const char* kUnknownArtist = "Unknown Artist";
inline constexpr const char* kUnknownAlbum = "Unknown Album";

/// The text without white space and newlines at its ends. Nothing for an empty result and for
/// placeholders that programs write for "not known": "none", "n/a", "unknown", "-" … in any case.
std::optional<std::string> cleanTag(std::string_view text);
/// A template, so that a text never becomes an optional on its way to the one above.
std::optional<std::string> cleanTag(const std::same_as<std::optional<std::string>> auto& text) {
  return text ? cleanTag(std::string_view(*text)) : std::nullopt;
}

/// The year of a date: its first four characters when they are a number from 1900 to 2099, else
/// the first group of four digits in that range. Nothing for fewer than four characters.
std::optional<int> parseDateYear(std::string_view text);

}  // namespace velorin
