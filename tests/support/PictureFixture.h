// Picture files of every kind, made at run time.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/images/Bitmap.h"

namespace velorin::test {

using Bytes = std::vector<std::uint8_t>;

/// Red grows to the right, green to the bottom, and blue falls from the top left corner.
Bitmap gradient(int width, int height);
Bitmap flat(int width, int height, std::uint8_t red, std::uint8_t green, std::uint8_t blue);
/// The largest and the mean distance of any channel of two pictures of one size.
struct Difference {
  int largest = 0;
  double mean = 0;
};
Difference differenceOf(const Bitmap& a, const Bitmap& b);

struct JpegRecipe {
  enum class Colors { yCbCr, grey, cmyk, ycck };
  Colors colors = Colors::yCbCr;
  bool progressive = false;
  int orientation = 0;  ///< 0: no Exif segment
};
Bytes jpegOf(const Bitmap& image, const JpegRecipe& recipe = {});

struct PngRecipe {
  enum class Kind { rgb, rgba, rgb16, grey, palette };
  Kind kind = Kind::rgb;
  bool interlaced = false;
  int alpha = 255;  ///< of every pixel, for rgba
};
Bytes pngOf(const Bitmap& image, const PngRecipe& recipe = {});

/// By one of FFmpeg's encoders: "libwebp", "bmp", "tiff", "gif".
Bytes encodedBy(const char* encoder, const Bitmap& image);

/// Pictures of any size that are never whole in memory: grey JPEG, PNG of one bit.
void writeLargeJpeg(const std::string& path, int width, int height);
void writeLargePng(const std::string& path, int width, int height);

/// Makes the frame header of a JPEG claim another size.
void claimJpegSize(Bytes& jpeg, int width, int height);

void writeBytes(const std::string& path, const Bytes& bytes);

}  // namespace velorin::test
