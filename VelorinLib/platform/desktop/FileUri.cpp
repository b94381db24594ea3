#include "platform/desktop/FileUri.h"

#include <limits.h>

#include "foundation/Text.h"

namespace velorin {
namespace {

// pchar of RFC 3986 and the slash, less ";", which some readers split at.
bool isPlain(unsigned char c) noexcept {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
         std::string_view("-._~/!$&'()*+,=:@").find(static_cast<char>(c)) != std::string_view::npos;
}

int hexValue(char c) noexcept {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool removePrefix(std::string_view& text, std::string_view prefix) {
  if (text::lowercaseASCII(text.substr(0, prefix.size())) != prefix) return false;
  text.remove_prefix(prefix.size());
  return true;
}

}  // namespace

std::string fileUri(std::string_view path) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string uri = "file://";
  for (const char c : path) {
    const auto byte = static_cast<unsigned char>(c);
    if (isPlain(byte)) {
      uri += c;
    } else {
      uri += {'%', kDigits[byte >> 4], kDigits[byte & 15]};
    }
  }
  return uri;
}

std::optional<std::string> pathOfFileUri(std::string_view uri) {
  if (uri.size() > 3 * PATH_MAX || !removePrefix(uri, "file:")) return std::nullopt;
  if (removePrefix(uri, "//")) removePrefix(uri, "localhost");
  if (!uri.starts_with('/')) return std::nullopt;

  std::string path;
  for (std::size_t i = 0; i < uri.size(); ++i) {
    char c = uri[i];
    if (c == '%') {
      if (i + 2 >= uri.size()) return std::nullopt;
      const int high = hexValue(uri[i + 1]);
      const int low = hexValue(uri[i + 2]);
      if (high < 0 || low < 0) return std::nullopt;
      c = static_cast<char>(high * 16 + low);
      i += 2;
    }
    if (c == '\0') return std::nullopt;
    path += c;
  }
  if (path.size() >= PATH_MAX) return std::nullopt;
  return path;
}

}  // namespace velorin
