// Text files of unknown encoding become UTF-8.
//
// CUE sheets and M3U lists carry no declaration of their encoding. The order is: a byte order mark,
// then UTF-8, then a legacy encoding that the bytes speak for with confidence, then the Western
// encoding that the caller names, in which any bytes are text.
//
// All functions are pure and may be called on any thread but the render thread (they allocate).
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace velorin::text {

enum class Encoding {
  utf8,
  utf16BE,
  utf16LE,
  latin1,       ///< ISO 8859-1: every byte is the code point of its value
  windows1252,  ///< its five unassigned bytes read as in latin1
  windows1251,  ///< Cyrillic, of Windows
  koi8,         ///< Cyrillic, KOI8-U, which holds KOI8-R's letters
  windows1253,  ///< Greek
  shiftJIS,     ///< Japanese, Windows-31J
  eucJP,
  gbk,    ///< simplified Chinese, read as GB 18030
  big5,   ///< traditional Chinese, with the additions of Windows
  eucKR,  ///< Korean, with the additions of Windows
};

/// As it is written in a log: "Shift-JIS".
const char* encodingName(Encoding encoding) noexcept;

struct DecodedText {
  std::string text;  ///< UTF-8; what is no character of the encoding is U+FFFD
  Encoding encoding = Encoding::utf8;
};

/// Decodes by the order told above. `fallback` is latin1 or windows1252. A byte order mark is no
/// part of the result. Text that is UTF-8 but for a few broken places counts as UTF-8.
DecodedText decodeText(std::string_view bytes, Encoding fallback);

/// The bytes as text of this encoding; bytes that are no character of it become U+FFFD, one for
/// each byte.
std::string decodeAs(std::string_view bytes, Encoding encoding);

}  // namespace velorin::text
