// The readers of single formats, behind decodeImage().
#pragma once

#include <mutex>

#include "foundation/Result.h"
#include "platform/images/ImageScaler.h"
#include "platform/images/PictureSource.h"

namespace velorin::images {

/// A picture on its way: reduced by a whole factor, with its longer side from the wanted size up to
/// twice that, or as it was when it is smaller.
struct ReducedPicture {
  Bitmap bitmap;
  ImageSize original;   ///< before the reduction, and before it is turned
  int orientation = 1;  ///< how to turn it, see Orientation.h
};

using DecodeResult = Result<ReducedPicture, ImageError>;

/// Through libjpeg-turbo, which leaves out what the reduced picture does not need.
DecodeResult decodeJpeg(PictureSource& source, int longerSide);
/// Through libpng.
DecodeResult decodePng(PictureSource& source, int longerSide);

enum class OtherFormat { webp, bmp, tiff, gif };
/// Through FFmpeg, which has the whole picture in memory.
DecodeResult decodeOther(PictureSource& source, OtherFormat format, int longerSide);

/// Who needs more memory than this has to wait for its turn.
inline constexpr std::uint64_t kSmallPictureMemory = 16'000'000;

/// Held while a picture that needs so many bytes is decoded: at once for a small one, otherwise
/// when no other large picture is being decoded.
std::unique_lock<std::mutex> waitForTurn(std::uint64_t bytes);

/// The error of a picture that needs more than kMaxPictureMemory.
ImageError needsTooMuch(std::uint64_t bytes);

inline constexpr const char* kCutShort = "the picture is cut short";

}  // namespace velorin::images
