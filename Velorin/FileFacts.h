// What the player's own decoder says of a music file.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "foundation/Result.h"

namespace velorin {

struct FileFacts {
  std::filesystem::path path;
  std::string format;  ///< "FLAC"
  std::uint32_t sampleRate = 0;
  std::uint32_t bitsPerSample = 0;  ///< 0 for lossy formats, 1 for DSD
  std::uint32_t channels = 0;
  std::uint64_t totalFrames = 0;  ///< 0 when the file does not tell
  std::uint64_t fileSize = 0;     ///< bytes
  std::string md5;                ///< of the decoded samples, hexadecimal; empty when not stored
  bool isLossless = true;
  bool isFloat = false;       ///< samples are floating point
  std::uint32_t dsdRate = 0;  ///< Hz of one-bit audio, whose frames are those of PCM; else 0

  double duration() const noexcept {
    return sampleRate == 0 ? 0 : static_cast<double>(totalFrames) / sampleRate;
  }
  /// Of each channel, as the file has them: of DSD one-bit samples.
  std::uint64_t totalSamples() const noexcept {
    return dsdRate == 0 || sampleRate == 0 ? totalFrames : totalFrames * (dsdRate / sampleRate);
  }
};

/// What is wrong with a file and what to do, in one line without the path.
struct FileError {
  std::string text;
};

/// Opens a file that the player has a decoder for, of any format. Never blocks on a pipe or a
/// device. Any thread.
Result<FileFacts, FileError> readFileFacts(const std::filesystem::path& path);

/// What is wrong with a file that could not be played, as a FileError says it.
std::string whyUnplayable(const std::filesystem::path& path);

/// As readFileFacts(), and looks whether the audio reaches to the end that the headers promise.
Result<FileFacts, FileError> readAndProbeFile(const std::filesystem::path& path);

}  // namespace velorin
