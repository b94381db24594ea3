#include "platform/images/ImageDecoder.h"

#include <algorithm>
#include <array>
#include <new>

#include "platform/images/Orientation.h"
#include "platform/images/PictureFormats.h"

namespace velorin {
namespace images {

std::unique_lock<std::mutex> waitForTurn(std::uint64_t bytes) {
  static std::mutex large;
  std::unique_lock<std::mutex> turn(large, std::defer_lock);
  if (bytes > kSmallPictureMemory) turn.lock();
  return turn;
}

ImageError needsTooMuch(std::uint64_t bytes) {
  return {fmt::format("the picture needs {} MB to decode, more than the {} MB allowed",
                      bytes / 1'000'000, kMaxPictureMemory / 1'000'000)};
}

}  // namespace images

namespace {

using namespace images;

DecodeResult decodeReduced(PictureSource& source, int longerSide) {
  std::array<std::uint8_t, 12> start{};
  const std::size_t got = source.readAt(0, start.data(), start.size());
  const std::string_view head(reinterpret_cast<const char*>(start.data()), got);
  if (head.starts_with("\xff\xd8\xff")) return decodeJpeg(source, longerSide);
  if (head.starts_with("\x89PNG")) return decodePng(source, longerSide);
  if (head.starts_with("RIFF") && head.ends_with("WEBP") && got == start.size()) {
    return decodeOther(source, OtherFormat::webp, longerSide);
  }
  if (head.starts_with("BM")) return decodeOther(source, OtherFormat::bmp, longerSide);
  if (head.starts_with("GIF8")) return decodeOther(source, OtherFormat::gif, longerSide);
  if (head.starts_with(std::string_view("II*\0", 4)) ||
      head.starts_with(std::string_view("MM\0*", 4))) {
    return decodeOther(source, OtherFormat::tiff, longerSide);
  }
  return ImageError{"not a picture of a known format"};
}

Result<Bitmap, ImageError> decode(PictureSource& source, int longerSide) {
  longerSide = std::max(longerSide, 1);
  try {
    auto reduced = decodeReduced(source, longerSide);
    if (!reduced) return reduced.error();
    auto fitted = scaled(reduced->bitmap, fittingSize(reduced->original, longerSide));
    if (!fitted) return fitted.error();
    return turned(std::move(fitted).value(), reduced->orientation);
  } catch (const std::bad_alloc&) {
    return ImageError{"not enough memory"};
  }
}

}  // namespace

Result<Bitmap, ImageError> decodeImage(std::span<const std::uint8_t> bytes, int longerSide) {
  const auto source = memorySource(bytes);
  return decode(*source, longerSide);
}

Result<Bitmap, ImageError> decodeImageFile(const std::string& path, int longerSide) {
  const auto source = fileSource(path);
  if (!source) return source.error();
  return decode(*source.value(), longerSide);
}

}  // namespace velorin
