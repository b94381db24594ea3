// What is transparent in a picture lies over white.
#pragma once

#include <cstdint>
#include <span>

namespace velorin::images {

/// Turns a row of RGBA pixels, alpha not multiplied in, into RGB pixels in its first three
/// quarters.
inline void blendOverWhite(std::span<std::uint8_t> row) noexcept {
  std::uint8_t* out = row.data();
  for (std::size_t i = 0; i + 4 <= row.size(); i += 4, out += 3) {
    const unsigned alpha = row[i + 3];
    for (std::size_t channel = 0; channel < 3; ++channel) {
      const unsigned over = row[i + channel] * alpha + 255 * (255 - alpha);
      out[channel] = static_cast<std::uint8_t>((over + 127) / 255);
    }
  }
}

}  // namespace velorin::images
