// The head of a FLAC file. RFC 9639, section 8.2.
#pragma once

#include "foundation/Result.h"
#include "library/metadata/AudioProperties.h"
#include "library/metadata/HeaderBytes.h"

namespace velorin {

/// As many bytes from the file's start as the reader wants.
inline constexpr std::size_t kFlacHeadBytes = 64;

/// The duration is 0 when the encoder did not know it. Pure.
Result<AudioProperties, HeaderFault> parseFlacHeader(HeaderBytes head);

}  // namespace velorin
