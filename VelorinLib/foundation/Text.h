// Small questions about text: is it UTF-8, how does it look on a terminal, what extension has it.
//
// File names, tags and host names come from outside and may hold any bytes. Text that we keep is
// UTF-8; these functions are where foreign bytes become so. All of them are pure and may be
// called on any thread but the render thread (they allocate).
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace velorin::text {

/// One step of a UTF-8 decoder.
struct CodePoint {
  char32_t value = 0;      ///< U+FFFD when the bytes are not UTF-8
  std::size_t length = 0;  ///< bytes consumed, at least 1 unless at the end
  bool valid = false;
};

/// Reads one code point at `position` (< bytes.size()). Strict as Unicode 15, table 3-7: no
/// overlong forms, no surrogates, nothing above U+10FFFF. Of an ill-formed sequence it consumes
/// the longest prefix that could have begun a character.
CodePoint decode(std::string_view bytes, std::size_t position) noexcept;

/// Appends the UTF-8 form of a Unicode scalar value.
void append(std::string& out, char32_t codePoint);

/// True when every byte belongs to a well-formed UTF-8 sequence.
bool validUTF8(std::string_view bytes) noexcept;

/// The text with each ill-formed sequence replaced by U+FFFD.
std::string toValidUTF8(std::string_view bytes);

/// The text on one line and without power over a terminal: control characters, line separators
/// and bidirectional overrides become "\n", "\x1b", "\u202e" …, bytes that are not UTF-8 "\xff".
std::string escapeForTerminal(std::string_view bytes);

/// The text without white space (Unicode property White_Space) at both ends.
std::string_view trimWhitespaceAndNewlines(std::string_view text) noexcept;

/// A to Z become a to z; every other byte stays.
std::string lowercaseASCII(std::string_view text);

/// What follows the last dot of the last path component, in lower case and without the dot:
/// "a/b.FLAC" gives "flac"; "a/.hidden" and "a/b" give "".
std::string fileExtension(std::string_view path);

/// A path as the interface and the log show it: valid UTF-8, escaped for a terminal, with the
/// home folder written as "~".
std::string pathForDisplay(const std::filesystem::path& path);

}  // namespace velorin::text
