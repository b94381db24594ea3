#include "foundation/Base64.h"

#include <array>

namespace velorin::base64 {
namespace {

constexpr std::string_view kAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::uint8_t kNone = 0xFF;

constexpr auto kValues = [] {
  std::array<std::uint8_t, 256> values{};
  values.fill(kNone);
  for (std::size_t i = 0; i < kAlphabet.size(); ++i) {
    values[static_cast<std::uint8_t>(kAlphabet[i])] = static_cast<std::uint8_t>(i);
  }
  return values;
}();

}  // namespace

std::string encode(std::span<const std::uint8_t> bytes) {
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    const std::size_t count = std::min<std::size_t>(3, bytes.size() - i);
    std::uint32_t group = 0;
    for (std::size_t k = 0; k < 3; ++k) group = group << 8 | (k < count ? bytes[i + k] : 0u);
    for (std::size_t k = 0; k < 4; ++k) {
      text.push_back(k <= count ? kAlphabet[group >> (18 - 6 * k) & 63] : '=');
    }
  }
  return text;
}

std::optional<std::vector<std::uint8_t>> decode(std::string_view text) {
  if (text.size() % 4 != 0) return std::nullopt;
  std::vector<std::uint8_t> bytes;
  bytes.reserve(text.size() / 4 * 3);
  for (; !text.empty(); text.remove_prefix(4)) {
    std::size_t count = 4;
    if (text.size() == 4) {
      while (count > 2 && text[count - 1] == '=') --count;
    }
    std::uint32_t group = 0;
    for (std::size_t k = 0; k < 4; ++k) {
      const std::uint8_t value = k < count ? kValues[static_cast<std::uint8_t>(text[k])] : 0;
      if (value == kNone) return std::nullopt;
      group = group << 6 | value;
    }
    const std::uint32_t leftOver = count == 4 ? 0 : count == 3 ? 0xFF : 0xFFFF;
    if ((group & leftOver) != 0) return std::nullopt;
    for (std::size_t k = 0; k + 1 < count; ++k) {
      bytes.push_back(static_cast<std::uint8_t>(group >> (16 - 8 * k)));
    }
  }
  return bytes;
}

}  // namespace velorin::base64
