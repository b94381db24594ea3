#include "foundation/Text.h"

#include <fmt/format.h>

#include <cstdlib>
#include <iterator>

namespace velorin::text {

namespace {

constexpr char32_t kReplacement = 0xFFFD;

struct LeadByte {
  int trailing;             // bytes that must follow
  unsigned char low, high;  // range of the first of them; the others are 80 to BF
};

// Unicode 15, table 3-7. The narrowed second byte is what excludes overlong forms, surrogates
// and values past U+10FFFF.
LeadByte classify(unsigned char lead) noexcept {
  if (lead < 0x80) return {0, 0, 0};
  if (lead < 0xC2) return {-1, 0, 0};
  if (lead < 0xE0) return {1, 0x80, 0xBF};
  if (lead == 0xE0) return {2, 0xA0, 0xBF};
  if (lead == 0xED) return {2, 0x80, 0x9F};
  if (lead < 0xF0) return {2, 0x80, 0xBF};
  if (lead == 0xF0) return {3, 0x90, 0xBF};
  if (lead < 0xF4) return {3, 0x80, 0xBF};
  if (lead == 0xF4) return {3, 0x80, 0x8F};
  return {-1, 0, 0};
}

// PropList.txt of the Unicode character database, property White_Space.
bool isWhitespace(char32_t c) noexcept {
  return (c >= 0x09 && c <= 0x0D) || c == 0x20 || c == 0x85 || c == 0xA0 || c == 0x1680 ||
         (c >= 0x2000 && c <= 0x200A) || c == 0x2028 || c == 0x2029 || c == 0x202F || c == 0x205F ||
         c == 0x3000;
}

// Characters that end a line or reorder what a reader sees.
bool isUnsafeOnTerminal(char32_t c) noexcept {
  return (c >= 0x80 && c <= 0x9F) || c == 0x2028 || c == 0x2029 || (c >= 0x202A && c <= 0x202E) ||
         (c >= 0x2066 && c <= 0x2069);
}

}  // namespace

CodePoint decode(std::string_view bytes, std::size_t position) noexcept {
  if (position >= bytes.size()) return {};
  const auto lead = static_cast<unsigned char>(bytes[position]);
  const LeadByte kind = classify(lead);
  if (kind.trailing == 0) return {lead, 1, true};
  if (kind.trailing < 0) return {kReplacement, 1, false};

  char32_t value = lead & (0x3F >> kind.trailing);
  unsigned char low = kind.low;
  unsigned char high = kind.high;
  std::size_t length = 1;
  for (int i = 0; i < kind.trailing; ++i, ++length) {
    if (position + length >= bytes.size()) return {kReplacement, length, false};
    const auto byte = static_cast<unsigned char>(bytes[position + length]);
    if (byte < low || byte > high) return {kReplacement, length, false};
    value = (value << 6) | (byte & 0x3F);
    low = 0x80;
    high = 0xBF;
  }
  return {value, length, true};
}

void append(std::string& out, char32_t c) {
  const auto put = [&out](char32_t byte) { out.push_back(static_cast<char>(byte)); };
  if (c < 0x80) {
    put(c);
  } else if (c < 0x800) {
    put(0xC0 | (c >> 6));
    put(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    put(0xE0 | (c >> 12));
    put(0x80 | ((c >> 6) & 0x3F));
    put(0x80 | (c & 0x3F));
  } else {
    put(0xF0 | (c >> 18));
    put(0x80 | ((c >> 12) & 0x3F));
    put(0x80 | ((c >> 6) & 0x3F));
    put(0x80 | (c & 0x3F));
  }
}

bool validUTF8(std::string_view bytes) noexcept {
  for (std::size_t i = 0; i < bytes.size();) {
    const CodePoint point = decode(bytes, i);
    if (!point.valid) return false;
    i += point.length;
  }
  return true;
}

std::string toValidUTF8(std::string_view bytes) {
  if (validUTF8(bytes)) return std::string(bytes);
  std::string out;
  out.reserve(bytes.size());
  for (std::size_t i = 0; i < bytes.size();) {
    const CodePoint point = decode(bytes, i);
    append(out, point.value);
    i += point.length;
  }
  return out;
}

std::string escapeForTerminal(std::string_view bytes) {
  std::string out;
  out.reserve(bytes.size());
  const auto to = std::back_inserter(out);
  for (std::size_t i = 0; i < bytes.size();) {
    const CodePoint point = decode(bytes, i);
    const std::string_view raw = bytes.substr(i, point.length);
    i += point.length;
    if (!point.valid) {
      for (const char c : raw) fmt::format_to(to, "\\x{:02x}", static_cast<unsigned char>(c));
    } else if (point.value == '\n') {
      out += "\\n";
    } else if (point.value == '\r') {
      out += "\\r";
    } else if (point.value == '\t') {
      out += "\\t";
    } else if (point.value < 0x20 || point.value == 0x7F) {
      fmt::format_to(to, "\\x{:02x}", static_cast<unsigned>(point.value));
    } else if (isUnsafeOnTerminal(point.value)) {
      fmt::format_to(to, "\\u{:04x}", static_cast<unsigned>(point.value));
    } else {
      out += raw;
    }
  }
  return out;
}

std::string_view trimWhitespaceAndNewlines(std::string_view text) noexcept {
  std::size_t begin = 0;
  while (begin < text.size()) {
    const CodePoint point = decode(text, begin);
    if (!point.valid || !isWhitespace(point.value)) break;
    begin += point.length;
  }
  std::size_t end = text.size();
  while (end > begin) {
    // Step back to the lead byte: at most three continuation bytes.
    std::size_t start = end - 1;
    while (start > begin && end - start < 4 && (text[start] & 0xC0) == 0x80) --start;
    const CodePoint point = decode(text, start);
    if (!point.valid || start + point.length != end || !isWhitespace(point.value)) break;
    end = start;
  }
  return text.substr(begin, end - begin);
}

std::string lowercaseASCII(std::string_view text) {
  std::string out(text);
  for (char& c : out) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return out;
}

std::string fileExtension(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  const std::string_view name = slash == std::string_view::npos ? path : path.substr(slash + 1);
  const std::size_t dot = name.rfind('.');
  if (dot == std::string_view::npos || dot == 0) return {};
  return lowercaseASCII(name.substr(dot + 1));
}

std::string pathForDisplay(const std::filesystem::path& path) {
  std::string_view native = path.native();
  std::string shown;
  if (const char* home = std::getenv("HOME"); home != nullptr && *home != '\0') {
    std::string_view prefix = home;
    while (prefix.size() > 1 && prefix.back() == '/') prefix.remove_suffix(1);
    if (prefix != "/" && native.starts_with(prefix) &&
        (native.size() == prefix.size() || native[prefix.size()] == '/')) {
      shown = "~";
      native.remove_prefix(prefix.size());
    }
  }
  return shown + escapeForTerminal(native);
}

}  // namespace velorin::text
