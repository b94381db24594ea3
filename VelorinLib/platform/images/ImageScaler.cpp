#include "platform/images/ImageScaler.h"

#include <algorithm>
#include <array>
#include <memory>

extern "C" {
#include <libswscale/swscale.h>
}

#include "platform/images/BoxReducer.h"

namespace velorin {
namespace {

/// The channels of a picture, one after the other; swscale's vectors read past the ends of rows.
class Planes {
 public:
  Planes(int width, int height)
      : _stride((static_cast<std::size_t>(width) + kSlack + 63) / 64 * 64),
        _planeBytes(_stride * static_cast<std::size_t>(height)),
        _bytes(_planeBytes * Bitmap::kChannels + kSlack) {}

  std::uint8_t* row(std::size_t channel, int y) {
    return _bytes.data() + channel * _planeBytes + static_cast<std::size_t>(y) * _stride;
  }
  int stride() const { return static_cast<int>(_stride); }

 private:
  static constexpr std::size_t kSlack = 64;
  std::size_t _stride;
  std::size_t _planeBytes;
  std::vector<std::uint8_t> _bytes;
};

void split(const Bitmap& image, Planes& planes) {
  for (int y = 0; y < image.height; ++y) {
    const std::uint8_t* in = image.row(y);
    std::uint8_t* red = planes.row(0, y);
    std::uint8_t* green = planes.row(1, y);
    std::uint8_t* blue = planes.row(2, y);
    for (int x = 0; x < image.width; ++x, in += Bitmap::kChannels) {
      red[x] = in[0];
      green[x] = in[1];
      blue[x] = in[2];
    }
  }
}

void join(Planes& planes, Bitmap& image) {
  for (int y = 0; y < image.height; ++y) {
    std::uint8_t* out = image.row(y);
    const std::uint8_t* red = planes.row(0, y);
    const std::uint8_t* green = planes.row(1, y);
    const std::uint8_t* blue = planes.row(2, y);
    for (int x = 0; x < image.width; ++x, out += Bitmap::kChannels) {
      out[0] = red[x];
      out[1] = green[x];
      out[2] = blue[x];
    }
  }
}

struct FreeScaler {
  void operator()(SwsContext* context) const { ::sws_freeContext(context); }
};

Result<Bitmap, ImageError> resampled(const Bitmap& image, ImageSize size) {
  // For swscale the channels are the planes of a YUV picture: it then scales each by itself, where
  // RGB would be converted to YUV and back.
  const std::unique_ptr<SwsContext, FreeScaler> context(::sws_getContext(
      image.width, image.height, AV_PIX_FMT_YUV444P, size.width, size.height, AV_PIX_FMT_YUV444P,
      SWS_LANCZOS | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT | SWS_FULL_CHR_H_INP, nullptr, nullptr,
      nullptr));
  if (!context) return ImageError{"the picture cannot be scaled"};
  Planes from(image.width, image.height);
  Planes to(size.width, size.height);
  split(image, from);
  const std::array<const std::uint8_t*, 4> source{from.row(0, 0), from.row(1, 0), from.row(2, 0),
                                                  nullptr};
  const std::array<std::uint8_t*, 4> target{to.row(0, 0), to.row(1, 0), to.row(2, 0), nullptr};
  const std::array<int, 4> sourceStrides{from.stride(), from.stride(), from.stride(), 0};
  const std::array<int, 4> targetStrides{to.stride(), to.stride(), to.stride(), 0};
  if (::sws_scale(context.get(), source.data(), sourceStrides.data(), 0, image.height,
                  target.data(), targetStrides.data()) != size.height) {
    return ImageError{"the picture cannot be scaled"};
  }
  Bitmap result = Bitmap::ofSize(size.width, size.height);
  join(to, result);
  return result;
}

}  // namespace

ImageSize fittingSize(ImageSize size, int longerSide) noexcept {
  const int longer = std::max(size.width, size.height);
  if (longer <= longerSide) return size;
  const auto shrunk = [&](int side) {
    const std::int64_t rounded = (2 * std::int64_t{side} * longerSide + longer) / (2 * longer);
    return static_cast<int>(std::max<std::int64_t>(rounded, 1));
  };
  return {shrunk(size.width), shrunk(size.height)};
}

Result<Bitmap, ImageError> scaled(const Bitmap& image, ImageSize size) {
  if (size == ImageSize{image.width, image.height}) return image;
  const int factorX = images::reduction(image.width, size.width);
  const int factorY = images::reduction(image.height, size.height);
  if (factorX == 1 && factorY == 1) return resampled(image, size);

  images::BoxReducer reducer(image.width, image.height, factorX, factorY);
  for (int y = 0; y < image.height; ++y) reducer.addRow(image.row(y));
  Bitmap reduced = std::move(reducer).take();
  if (size == ImageSize{reduced.width, reduced.height}) return reduced;
  return resampled(reduced, size);
}

}  // namespace velorin
