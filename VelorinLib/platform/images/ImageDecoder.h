// Picture files and embedded pictures become small bitmaps.
//
// Whatever a picture claims, the memory is bounded: it is reduced while it is read, row by row,
// and only the reduced picture is ever whole. Where a format cannot be read so (progressive JPEG,
// and what FFmpeg decodes), a bound on what it needs stands before it, and pictures that need more
// than a little are read one at a time in the whole process.
//
// What is read: JPEG (baseline and progressive; grey, YCbCr, CMYK, YCCK; turned as EXIF says), PNG
// (every kind, interlaced too), WebP, BMP, TIFF and GIF (its first picture). The bytes tell which,
// not the name.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "foundation/Result.h"
#include "platform/images/Bitmap.h"

namespace velorin {

/// A file that is larger is no picture to us.
inline constexpr std::uint64_t kMaxPictureFileBytes = 200'000'000;
/// Width times height of a JPEG or PNG.
inline constexpr std::uint64_t kMaxPicturePixels = 1'000'000'000;
/// What the decoding of one picture may hold at a time, apart from its reduced form.
inline constexpr std::uint64_t kMaxPictureMemory = 256'000'000;

/// The picture with its longer side at most `longerSide` pixels (at least 1); a smaller one is
/// kept as it is. The aspect ratio stays, though no side goes below 1. A picture that ends early
/// is an error, not half a picture. Any thread; blocks.
Result<Bitmap, ImageError> decodeImage(std::span<const std::uint8_t> bytes, int longerSide);

/// The same from a file. Only a regular file: a pipe or a device is an error and never waited for.
/// Blocks for the disk.
Result<Bitmap, ImageError> decodeImageFile(const std::string& path, int longerSide);

}  // namespace velorin
