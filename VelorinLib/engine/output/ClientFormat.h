// The format of what the ring holds, chosen per track.
#pragma once

#include "platform/audio/StreamFormat.h"

namespace velorin {

/// What a decoder reports, as the record of its file.
StreamFormat fileFormatOf(double sampleRate, std::uint32_t channels, std::uint32_t bitsPerSample,
                          bool isFloat);

/// Planar 32-bit float, or with `integerWanted` and a known depth a signed integer that holds
/// every bit: 16-bit words up to 16 bits, 32-bit words above (a 24-bit source sits in their top
/// 24 bits and the format says so by leaving "packed" out).
StreamFormat clientFormatFor(bool integerWanted, int sourceBitDepth, double sampleRate,
                             std::uint32_t channels);

}  // namespace velorin
