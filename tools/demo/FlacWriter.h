// Writes one tagged FLAC file through libFLAC's encoder.
#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace velorin::demo {

struct FlacSpec {
  unsigned sampleRate = 44100;
  unsigned bitsPerSample = 16;
  /// Vorbis comments, name and value.
  std::vector<std::pair<std::string, std::string>> tags;
};

/// Writes interleaved stereo samples. False, with a reason on stderr, when the file cannot be
/// written.
bool writeFlac(const std::filesystem::path& path, const FlacSpec& spec,
               std::span<const std::int32_t> interleaved);

}  // namespace velorin::demo
