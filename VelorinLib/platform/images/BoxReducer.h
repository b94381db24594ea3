// Reduces a picture by a whole factor while its rows come in.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "platform/images/Bitmap.h"

namespace velorin::images {

/// Each pixel of the result is the mean of a block of pixels; blocks at the right and bottom edge
/// may be smaller. Rows come in order. Holds one row of sums beside the result.
class BoxReducer {
 public:
  /// Factors of at least 1; width and height in pixels, at least 1. The result has ceil(width /
  /// factorX) times ceil(height / factorY) pixels.
  BoxReducer(int width, int height, int factorX, int factorY);

  /// The next row, `width` pixels of three bytes. Rows past the last are ignored.
  void addRow(const std::uint8_t* row);

  int rowsTaken() const { return _rowsTaken; }

  /// Once, after the last row.
  Bitmap take() && { return std::move(_result); }

 private:
  void finishRow(int rowsInBlock);

  const int _width;
  const int _height;
  const int _factorX;
  const int _factorY;
  int _rowsTaken = 0;
  std::vector<std::uint64_t> _sums;  ///< by channel of a result row
  Bitmap _result;
};

/// The same for pixels in any order, as an interlaced picture brings them. Holds sums for the whole
/// result.
class PixelReducer {
 public:
  /// The sum of a larger block would not fit 32 bits.
  static constexpr int kMaxFactor = 4096;

  /// The factor, in both directions, is from 1 to kMaxFactor.
  PixelReducer(int width, int height, int factor);

  /// Adds the pixels x0, x0 + step, x0 + 2 step … of row y; three bytes each.
  void addPixels(int y, int x0, int step, std::span<const std::uint8_t> pixels);

  Bitmap take() &&;

 private:
  const int _width;
  const int _height;
  const int _factor;
  std::vector<std::uint32_t> _sums;
  Bitmap _result;
};

/// The factor that brings a side near to the wanted one, though not below it.
inline int reduction(int side, int wanted) {
  return side > wanted ? side / wanted : 1;
}

}  // namespace velorin::images
