// The heads of one-bit audio files: DSF ("DSF File Format Specification" 1.01, Sony) and DSDIFF
// ("DSDIFF File Format Specification" 1.5, Philips).
#pragma once

#include <functional>

#include "foundation/Result.h"
#include "library/metadata/AudioProperties.h"
#include "library/metadata/HeaderBytes.h"

namespace velorin {

struct DsdHeader {
  std::uint64_t dataOffset = 0;   ///< of the sound in the file, bytes
  std::uint64_t dataBytes = 0;    ///< of the sound, all channels together; 1 or more
  std::uint32_t sampleRate = 0;   ///< the one-bit rate in Hz, one of DSD64 to DSD512
  std::uint32_t channels = 0;     ///< 1 or more
  std::uint64_t sampleCount = 0;  ///< of a channel, where the file states it; else 0

  /// Exact where the file states its samples: the last blocks of a DSF are filled up.
  AudioProperties properties() const;
};

struct DsdFault {
  HeaderFault fault = HeaderFault::malformed;
  /// A rate that is not one of the four of DSD64 to DSD512; else 0.
  std::uint32_t unsupportedRate = 0;
  /// True for a DSDIFF whose sound is DST compressed.
  bool isCompressed = false;
};

/// As many bytes from the file's start as parseDsfHeader wants.
inline constexpr std::size_t kDsfHeadBytes = 92;

/// Pure.
Result<DsdHeader, DsdFault> parseDsfHeader(HeaderBytes head);

/// Reads from an offset of the file; fewer bytes at its end.
using ReadAt = std::function<std::size_t(std::uint64_t offset, std::span<std::byte> destination)>;

/// Chunks can lie anywhere before the sound, so that this one asks for bytes: 12 for a chunk and
/// up to 1024 of the properties. Pure but for `read`.
Result<DsdHeader, DsdFault> parseDffHeader(const ReadAt& read);

}  // namespace velorin
