// What a music file says of itself.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "foundation/Result.h"

namespace velorin {

struct FileFacts {
  std::filesystem::path path;
  std::string format;  ///< "FLAC"
  std::uint32_t sampleRate = 0;
  std::uint32_t bitsPerSample = 0;
  std::uint32_t channels = 0;
  std::uint64_t totalFrames = 0;  ///< 0 when the file does not tell
  std::uint64_t fileSize = 0;     ///< bytes
  std::string md5;                ///< of the decoded samples, hexadecimal; empty when not stored
  // Tags, valid UTF-8; empty when the file has none.
  std::string title;
  std::string artist;
  std::string album;
  std::string trackNumber;
  // ReplayGain tags: dB, and linear peaks.
  std::optional<double> trackGain;
  std::optional<double> albumGain;
  std::optional<double> trackPeak;
  std::optional<double> albumPeak;

  double duration() const noexcept {
    return sampleRate == 0 ? 0 : static_cast<double>(totalFrames) / sampleRate;
  }
};

/// What is wrong with a file and what to do, in one line without the path.
struct FileError {
  std::string text;
};

/// Reads a file's headers. Never blocks on a pipe or a device. Any thread.
Result<FileFacts, FileError> readFileFacts(const std::filesystem::path& path);

/// What is wrong with a file that could not be played, as a FileError says it.
std::string whyUnplayable(const std::filesystem::path& path);

/// As readFileFacts(), and looks whether the audio reaches to the end that the headers promise.
Result<FileFacts, FileError> readAndProbeFile(const std::filesystem::path& path);

}  // namespace velorin
