#include "platform/images/Orientation.h"

#include <cstring>
#include <string_view>

namespace velorin::images {
namespace {

/// TIFF numbers in the byte order of the file; 0 beyond its end.
class TiffNumbers {
 public:
  TiffNumbers(std::span<const std::uint8_t> bytes, bool littleEndian)
      : _bytes(bytes), _littleEndian(littleEndian) {}

  std::uint32_t at(std::size_t offset, std::size_t length) const {
    if (offset > _bytes.size() || length > _bytes.size() - offset) return 0;
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < length; ++i) {
      value = value << 8 | _bytes[offset + (_littleEndian ? length - 1 - i : i)];
    }
    return value;
  }

 private:
  std::span<const std::uint8_t> _bytes;
  bool _littleEndian;
};

}  // namespace

int orientationOf(std::span<const std::uint8_t> segment) noexcept {
  constexpr std::string_view kMark("Exif\0\0", 6);
  constexpr std::size_t kEntry = 12;
  if (segment.size() < kMark.size() ||
      std::memcmp(segment.data(), kMark.data(), kMark.size()) != 0) {
    return 1;
  }
  const auto tiff = segment.subspan(kMark.size());
  if (tiff.size() < 8) return 1;
  const TiffNumbers numbers(tiff, tiff[0] == 'I');
  const std::size_t directory = numbers.at(4, 4);
  const std::size_t entries = numbers.at(directory, 2);
  for (std::size_t i = 0; i < entries; ++i) {
    const std::size_t entry = directory + 2 + i * kEntry;
    if (entry > tiff.size()) break;
    if (numbers.at(entry, 2) != 274) continue;
    const std::uint32_t value = numbers.at(entry + 8, 2);
    return value >= 1 && value <= 8 ? static_cast<int>(value) : 1;
  }
  return 1;
}

Bitmap turned(Bitmap image, int orientation) {
  if (orientation < 2 || orientation > 8) return image;
  // From 5 on rows are columns; the rest says from which ends they are counted.
  const bool swapped = orientation >= 5;
  const bool fromRight =
      orientation == 2 || orientation == 3 || orientation == 7 || orientation == 8;
  const bool fromBottom =
      orientation == 3 || orientation == 4 || orientation == 6 || orientation == 7;
  Bitmap result = swapped ? Bitmap::ofSize(image.height, image.width)
                          : Bitmap::ofSize(image.width, image.height);
  for (int y = 0; y < result.height; ++y) {
    std::uint8_t* out = result.row(y);
    for (int x = 0; x < result.width; ++x, out += Bitmap::kChannels) {
      int sourceX = swapped ? y : x;
      int sourceY = swapped ? x : y;
      if (fromRight) sourceX = image.width - 1 - sourceX;
      if (fromBottom) sourceY = image.height - 1 - sourceY;
      std::memcpy(out, image.row(sourceY) + static_cast<std::size_t>(sourceX) * Bitmap::kChannels,
                  Bitmap::kChannels);
    }
  }
  return result;
}

}  // namespace velorin::images
