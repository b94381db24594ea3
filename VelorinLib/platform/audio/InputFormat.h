// Which stream formats an output unit takes at its input, whatever the backend.
#pragma once

#include "platform/audio/AudioTypes.h"
#include "platform/audio/StreamFormat.h"

namespace velorin {

/// -EINVAL with a text unless the format is planar linear PCM of 1 to kMaxChannels channels, at
/// 1 kHz to 10 MHz, of 32-bit float or of 16- or 32-bit signed integers in the machine's order.
AudioStatus checkInputFormat(const StreamFormat& format);

/// Bits of a sample that carry sound. A 32-bit integer that does not fill its container (not
/// packed) is 24 bits at the top; a float counts as its 24-bit significand.
std::uint32_t significantBits(const StreamFormat& format) noexcept;

/// "F32P", "S16P", "S32P".
const char* planarFormatName(const StreamFormat& format) noexcept;

}  // namespace velorin
