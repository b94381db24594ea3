// What the fuzzer and the replay test do with one input.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace velorin::test {

/// Bytes at the start of an input that steer the decoder; the rest is the FLAC file.
inline constexpr std::size_t kFlacScriptBytes = 16;

/// Opens the file and reads and seeks as the script says, then reads to the end or to a few
/// million frames. Aborts when the decoder breaks a promise: more frames than wanted, a float
/// beyond full scale, a position that is not where the reads and seeks lead.
void driveFlac(std::span<const std::uint8_t> input);

struct FlacSeed {
  std::string name;
  std::vector<std::uint8_t> input;
};

/// Small inputs that between them reach every kind of file and every operation.
std::vector<FlacSeed> flacSeeds();

}  // namespace velorin::test
