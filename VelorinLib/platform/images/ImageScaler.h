// Scaling of bitmaps.
#pragma once

#include "foundation/Result.h"
#include "platform/images/Bitmap.h"

namespace velorin {

/// A width and a height in pixels.
struct ImageSize {
  int width = 0;
  int height = 0;

  bool operator==(const ImageSize&) const = default;
};

/// The size that a picture of this size has when its longer side is at most `longerSide`: the same
/// aspect ratio, rounded, and no side below 1.
ImageSize fittingSize(ImageSize size, int longerSide) noexcept;

/// The bitmap in exactly this size (each side from 1 to 16384), stretched where the aspect ratio
/// differs. Reduces by averaging whole blocks of pixels to less than twice the size, then by a
/// Lanczos filter on each channel alone, so that no colour conversion rounds. Any thread.
Result<Bitmap, ImageError> scaled(const Bitmap& image, ImageSize size);

}  // namespace velorin
