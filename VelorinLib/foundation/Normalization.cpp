#include "foundation/Normalization.h"

#include <utf8proc.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

#include "foundation/Text.h"

namespace velorin::unicode {

std::string precomposed(std::string_view text) {
  const auto isASCII = [](char c) { return static_cast<unsigned char>(c) < 0x80; };
  if (std::all_of(text.begin(), text.end(), isASCII) || !text::validUTF8(text)) {
    return std::string(text);
  }
  utf8proc_uint8_t* composed = nullptr;
  const auto size =
      utf8proc_map(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                   static_cast<utf8proc_ssize_t>(text.size()), &composed,
                   static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_COMPOSE));
  const std::unique_ptr<utf8proc_uint8_t, decltype(&std::free)> owner(composed, &std::free);
  if (size < 0) return std::string(text);
  return {reinterpret_cast<const char*>(composed), static_cast<std::size_t>(size)};
}

}  // namespace velorin::unicode
