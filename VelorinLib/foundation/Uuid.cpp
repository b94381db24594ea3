#include "foundation/Uuid.h"

#include <sys/random.h>

#include <array>
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <system_error>

namespace velorin {

std::string makeUuid() {
  std::array<std::uint8_t, 16> bytes{};
  // The kernel gives up to 256 bytes at once; only a signal before its pool is ready interrupts.
  while (::getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
    if (errno != EINTR) throw std::system_error(errno, std::generic_category(), "getrandom");
  }
  bytes[6] = (bytes[6] & 0x0F) | 0x40;  // version 4
  bytes[8] = (bytes[8] & 0x3F) | 0x80;  // variant of RFC 4122

  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text;
  text.reserve(36);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
    text += kDigits[bytes[i] >> 4];
    text += kDigits[bytes[i] & 0x0F];
  }
  return text;
}

bool isUuid(std::string_view text) noexcept {
  constexpr std::string_view kForm = "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx";
  if (text.size() != kForm.size()) return false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool isHex = std::isxdigit(static_cast<unsigned char>(text[i])) != 0;
    if (kForm[i] == '-' ? text[i] != '-' : !isHex) return false;
  }
  return true;
}

}  // namespace velorin
