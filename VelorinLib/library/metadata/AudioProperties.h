// What a file's headers say of its sound.
#pragma once

#include <optional>
#include <string>

#include "foundation/Result.h"
#include "library/metadata/MetadataExtracting.h"

namespace velorin {

struct AudioProperties {
  double duration = 0;            ///< seconds, never below 0; 0 when the file does not tell
  std::optional<int> sampleRate;  ///< Hz; of DSD the one-bit rate
  std::optional<int> channels;
  std::optional<int> bitDepth;  ///< empty for formats without one; 1 for DSD
  std::optional<int> bitRate;   ///< bits per second

  bool operator==(const AudioProperties&) const = default;
};

/// Reads the properties by the road of the file's extension: FLAC, Monkey's Audio, WavPack and DSD
/// by readers of our own that touch only the file's head, everything else, and what those cannot
/// read, by the general readers. Any thread; blocks for the disk.
Result<AudioProperties, ExtractFailure> readAudioProperties(const std::string& path);

/// The name that the library stores for a file's format, by its extension: "FLAC", "ALAC" for m4a,
/// "DSD", "WavPack" …; an extension that is not known in upper case. Pure.
std::string formatName(const std::string& path);

}  // namespace velorin
