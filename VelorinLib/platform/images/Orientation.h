// Which way up a camera held the picture (Exif 2.32, tag 274 "Orientation").
#pragma once

#include <cstdint>
#include <span>

#include "platform/images/Bitmap.h"

namespace velorin::images {

/// The orientation that an Exif segment states, 1 to 8: the corner at which the stored first row
/// and first column begin, from 1 (top left, as it should be seen) to 8. `segment` begins with
/// "Exif" and two zero bytes and may be cut off. 1 when it says nothing that makes sense.
int orientationOf(std::span<const std::uint8_t> segment) noexcept;

/// The bitmap as it is to be seen: mirrored, turned or both. Other values than 2 to 8 change
/// nothing.
Bitmap turned(Bitmap image, int orientation);

}  // namespace velorin::images
