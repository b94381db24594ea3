// The head of a Monkey's Audio file, of all versions of the format.
#pragma once

#include "foundation/Result.h"
#include "library/metadata/AudioProperties.h"
#include "library/metadata/HeaderBytes.h"

namespace velorin {

/// As many bytes from the file's start as the reader wants.
inline constexpr std::size_t kApeHeadBytes = 128;

/// Pure.
Result<AudioProperties, HeaderFault> parseApeHeader(HeaderBytes head);

}  // namespace velorin
