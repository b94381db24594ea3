// Bitmaps become JPEG files.
#pragma once

#include <vector>

#include "foundation/Result.h"
#include "platform/images/Bitmap.h"

namespace velorin {

/// A baseline JPEG in YCbCr with the colour at half the resolution. quality: 0 to 1. Fails for a
/// bitmap that no JPEG can hold: a side of 0 or above 65,500 pixels. Any thread.
Result<std::vector<std::uint8_t>, ImageError> encodeJpeg(const Bitmap& image, double quality);

}  // namespace velorin
