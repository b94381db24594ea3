// A picture in memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace velorin {

/// Rows from top to bottom, each pixel three bytes: red, green, blue, as sRGB values. No padding
/// and no alpha: whatever is transparent in a file lies over white here.
struct Bitmap {
  static constexpr std::size_t kChannels = 3;

  int width = 0;   ///< pixels, at least 1
  int height = 0;  ///< pixels, at least 1
  std::vector<std::uint8_t> pixels;

  /// A black one.
  static Bitmap ofSize(int width, int height) {
    return {width, height,
            std::vector<std::uint8_t>(static_cast<std::size_t>(width) *
                                      static_cast<std::size_t>(height) * kChannels)};
  }

  std::size_t rowBytes() const { return static_cast<std::size_t>(width) * kChannels; }
  std::uint8_t* row(int y) { return pixels.data() + static_cast<std::size_t>(y) * rowBytes(); }
  const std::uint8_t* row(int y) const {
    return pixels.data() + static_cast<std::size_t>(y) * rowBytes();
  }

  bool operator==(const Bitmap&) const = default;
};

/// Why there is no picture, in one line without a path: "the picture is cut short".
struct ImageError {
  std::string reason;
};

}  // namespace velorin
