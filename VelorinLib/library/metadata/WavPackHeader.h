// The head of a WavPack file. "WavPack 4 & 5 Binary File / Block Format".
#pragma once

#include <optional>

#include "foundation/Result.h"
#include "library/metadata/AudioProperties.h"
#include "library/metadata/HeaderBytes.h"

namespace velorin {

/// As many bytes from the file's start, and where the length is unknown from its end, as the
/// readers want.
inline constexpr std::size_t kWavPackHeadBytes = 4096;
inline constexpr std::size_t kWavPackTailBytes = 32768;

struct WavPackHeader {
  AudioProperties properties;  ///< the duration is 0 when the length is unknown
  bool hasLength = true;       ///< false: the encoder wrote into a pipe, see wavPackLength
  std::size_t offset = 0;      ///< of the first block in the file
};

/// Pure.
Result<WavPackHeader, HeaderFault> parseWavPackHeader(HeaderBytes head);

/// The samples per channel up to the end of the last block that begins in a file's tail. Pure.
std::optional<std::uint64_t> wavPackLength(HeaderBytes tail);

}  // namespace velorin
