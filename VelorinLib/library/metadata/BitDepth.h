// How many bits a sample has in files whose header is a chain of chunks.
#pragma once

#include <optional>
#include <string_view>

#include "library/metadata/HeaderBytes.h"

namespace velorin {

/// As many bytes from the file's start as are searched.
inline constexpr std::size_t kBitDepthHeadBytes = 8192;

/// True for the extensions (in lower case) whose files the detector knows: aiff, aif, wav.
bool hasBitDepthDetector(std::string_view extension) noexcept;

/// By the file's content: the "COMM" of an AIFF or AIFC, the "fmt " of a WAV, RF64 or BW64. 0 when
/// the samples are compressed with loss, so that they have no depth. Nothing when the bytes do not
/// tell. Pure.
std::optional<int> detectBitDepth(HeaderBytes head);

}  // namespace velorin
