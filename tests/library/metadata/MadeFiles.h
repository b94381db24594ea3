// Music files made at run time by the real encoders, and by hand where there is none.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "support/ChildProcess.h"

namespace velorin::test {

/// Two seconds of a tone, 44.1 kHz, 16 bits, stereo; run FFmpeg with what follows its input.
void makeTone(const std::vector<std::string>& outputArguments);

/// Where to write a file's bytes.
void writeBytes(const std::filesystem::path& path, std::string_view bytes);
std::string readBytes(const std::filesystem::path& path);

/// `count` bytes of a number, least significant first, and most significant first.
std::string littleEndianBytes(std::uint64_t value, int count);
std::string bigEndianBytes(std::uint64_t value, int count);

/// A DSF of silence whose last block is not full.
std::string dsfBytes(std::uint32_t rate, std::uint32_t channels, std::uint64_t samples);
/// A DSDIFF with a chunk of a foreign kind before its sound.
std::string dffBytes(std::uint32_t rate, std::uint32_t channels, std::uint64_t bytesPerChannel,
                     std::string_view soundChunk = "DSD ");

}  // namespace velorin::test
