// What the readers of headers share: how bytes become numbers, and what can be wrong with a head.
//
// Readers get the bytes they may look at as a span and never read a file, so that any bytes can be
// thrown at them. The caller of these functions has made sure that the bytes are there.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace velorin {

using HeaderBytes = std::span<const std::byte>;

enum class HeaderFault {
  tooShort,   ///< the file ends before its header does
  badMagic,   ///< it is no file of this kind
  malformed,  ///< what the header says cannot be
};

template <std::size_t kCount>
std::uint64_t bigEndian(HeaderBytes bytes, std::size_t at) noexcept {
  std::uint64_t value = 0;
  for (std::size_t i = 0; i < kCount; ++i) {
    value = value << 8 | std::to_integer<std::uint64_t>(bytes[at + i]);
  }
  return value;
}

template <std::size_t kCount>
std::uint64_t littleEndian(HeaderBytes bytes, std::size_t at) noexcept {
  std::uint64_t value = 0;
  for (std::size_t i = kCount; i-- > 0;) {
    value = value << 8 | std::to_integer<std::uint64_t>(bytes[at + i]);
  }
  return value;
}

inline std::uint32_t bigEndian16(HeaderBytes bytes, std::size_t at) noexcept {
  return static_cast<std::uint32_t>(bigEndian<2>(bytes, at));
}
inline std::uint32_t bigEndian32(HeaderBytes bytes, std::size_t at) noexcept {
  return static_cast<std::uint32_t>(bigEndian<4>(bytes, at));
}
inline std::uint32_t littleEndian16(HeaderBytes bytes, std::size_t at) noexcept {
  return static_cast<std::uint32_t>(littleEndian<2>(bytes, at));
}
inline std::uint32_t littleEndian32(HeaderBytes bytes, std::size_t at) noexcept {
  return static_cast<std::uint32_t>(littleEndian<4>(bytes, at));
}

/// The bytes as text, for comparing marks; a view of the span's bytes.
inline std::string_view asText(HeaderBytes bytes) noexcept {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

/// True when the bytes at the position are there and are the mark.
inline bool hasMark(HeaderBytes bytes, std::size_t at, std::string_view mark) noexcept {
  return at <= bytes.size() && asText(bytes.subspan(at)).starts_with(mark);
}

}  // namespace velorin
