// What a fuzzer of a decoder and its replay test do with one input.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "engine/decoders/FillThreadDecoder.h"

namespace velorin::test {

/// Aborts, naming the promise, when it was not kept.
void require(bool kept, const char* promise);

/// One read of a decoder, after it.
struct DecoderRead {
  const FileDecoder& decoder;
  const AudioBufferList& list;
  std::int64_t before = 0;  ///< the position
  std::uint32_t wanted = 0;
  std::uint32_t frames = 0;
  bool asFloat = false;
};
using ReadCheck = std::function<void(const DecoderRead&)>;

/// Reads and seeks as the script says, two bytes a step, then reads on to the end or that many
/// times. Aborts when a read fails or gives more than wanted, or a seek leads elsewhere; what else
/// holds of a read is the check's.
void runScript(FileDecoder& decoder, std::span<const std::uint8_t> script, int finalReads,
               const ReadCheck& check);

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
