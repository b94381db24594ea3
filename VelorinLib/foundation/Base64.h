// Bytes as text (RFC 4648, section 4).
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace velorin::base64 {

/// Padded, without line breaks.
std::string encode(std::span<const std::uint8_t> bytes);

/// Nothing for a text that encode() could not have written: of another alphabet, without its
/// padding, or with bits left over.
std::optional<std::vector<std::uint8_t>> decode(std::string_view text);

}  // namespace velorin::base64
