// What a fuzzer of a decoder and its replay test do with one input.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace velorin::test {

/// Bytes at the start of an input that steer the decoder. The last two are the length of the
/// companion file (a WavPack correction file), which ends the input; between them is the file.
inline constexpr std::size_t kScriptBytes = 16;

/// Opens the file from RAM by its extension, reads and seeks as the script says, then reads to the
/// end or to a few million frames. Aborts when the decoder breaks a promise: more frames than
/// wanted, a position that is not where the reads and seeks lead, an error without a text.
void driveDecoder(std::span<const std::uint8_t> input, std::string_view extension);

struct DecoderSeed {
  std::string name;
  std::vector<std::uint8_t> input;
};

/// Small inputs by the real encoder ("opus" or "wv") that reach every kind of file.
std::vector<DecoderSeed> encodedSeeds(std::string_view extension);

}  // namespace velorin::test
