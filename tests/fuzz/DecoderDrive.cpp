#include "fuzz/DecoderDrive.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "engine/decoders/DecoderFactory.h"
#include "engine/memory/MemoryFileHandle.h"
#include "support/EncodedFixture.h"
#include "support/TemporaryFolder.h"

namespace velorin::test {
namespace {

constexpr std::uint32_t kMaxRead = 5000;
constexpr std::size_t kStepBytes = 14;  // of the script; the companion's length follows

void countsFrames(const DecoderRead& read) {
  require(read.decoder.currentPosition() == read.before + read.frames,
          "the position counts frames");
}

std::uint32_t readOnce(FileDecoder& decoder, PlanarBuffers& buffers, std::uint32_t frames,
                       bool asFloat, const ReadCheck& check) {
  const std::int64_t before = decoder.currentPosition();
  const DecodeResult result = decoder.read(buffers.list(), frames, asFloat);
  require(result.status == 0, "a read succeeds");
  require(result.frames <= frames, "no more frames than wanted");
  check({decoder, buffers.list(), before, frames, result.frames, asFloat});
  return result.frames;
}

void seekOnce(FileDecoder& decoder, std::int64_t target) {
  const std::int64_t before = decoder.currentPosition();
  const bool reached = decoder.seek(target);
  const std::int64_t expected = reached ? std::max<std::int64_t>(target, 0) : before;
  require(decoder.currentPosition() == expected, "a seek goes to its target or nowhere");
}

}  // namespace

void require(bool kept, const char* promise) {
  if (kept) return;
  std::fprintf(stderr, "broken promise: %s\n", promise);
  std::abort();
}

void runScript(FileDecoder& decoder, std::span<const std::uint8_t> script, int finalReads,
               const ReadCheck& check) {
  require(decoder.sampleRate() > 0 && decoder.channels() > 0, "the format is stated");
  // One channel more than the file has, so that the silent one is exercised too.
  PlanarBuffers buffers(std::min<std::uint32_t>(decoder.channels() + 1, kMaxChannels), kMaxRead, 4);
  // Each step takes two bytes: what to do, and how far.
  for (std::size_t i = 0; i + 1 < script.size(); i += 2) {
    const std::uint32_t amount = script[i + 1];
    switch (script[i] % 6) {
      case 0:
        readOnce(decoder, buffers, amount, false, check);
        break;
      case 1:
        readOnce(decoder, buffers, amount * 19, true, check);
        break;
      case 2:
        seekOnce(decoder, amount * 37);
        break;
      case 3:
        seekOnce(decoder, decoder.totalFrames() - amount);
        break;
      case 4:
        seekOnce(decoder, decoder.totalFrames() + amount);
        break;
      default:
        seekOnce(decoder, decoder.totalFrames() / 256 * amount);
        break;
    }
  }
  for (int i = 0; i < finalReads; ++i) {
    if (readOnce(decoder, buffers, kMaxRead, i % 2 == 0, check) == 0) break;
  }
}

void driveDecoder(std::span<const std::uint8_t> input, std::string_view extension) {
  if (input.size() < kScriptBytes) return;
  const auto script = input.first(kScriptBytes);
  const auto files = std::as_bytes(input.subspan(kScriptBytes));
  const std::size_t beside = std::min<std::size_t>(script[14] | script[15] << 8, files.size());
  std::unique_ptr<ReadableFile> companion;
  if (beside > 0 && extension == "wv") {
    companion = std::make_unique<MemoryFileHandle>(files.last(beside));
  }
  auto made =
      DecoderFactory::open(std::make_unique<MemoryFileHandle>(files.first(files.size() - beside)),
                           extension, std::move(companion));
  if (!made) {
    require(!made.error().text.empty(), "an error has a text");
    return;
  }
  runScript(*made.value(), script.first(kStepBytes), 200, countsFrames);
}

std::vector<DecoderSeed> encodedSeeds(std::string_view extension) {
  const TemporaryFolder folder;
  std::vector<DecoderSeed> seeds;
  const auto add = [&](std::string name, std::vector<std::byte> file,
                       const std::vector<std::byte>& companion = {}) {
    std::vector<std::uint8_t> input(kScriptBytes);
    for (std::size_t i = 0; i < kStepBytes; ++i) {
      input[i] = static_cast<std::uint8_t>(seeds.size() + i * 29);
    }
    input[14] = static_cast<std::uint8_t>(companion.size());
    input[15] = static_cast<std::uint8_t>(companion.size() >> 8);
    file.insert(file.end(), companion.begin(), companion.end());
    for (const std::byte byte : file) input.push_back(std::to_integer<std::uint8_t>(byte));
    seeds.push_back({std::move(name), std::move(input)});
  };
  using enum SignalRecipe::Signal;
  if (extension == "opus") {
    std::vector<std::byte> chain;
    for (const unsigned channels : {2u, 1u, 6u}) {
      const SignalRecipe recipe{.channels = channels, .frames = 9000, .signal = sine};
      encodeOpus(folder / "a", makeSignal(recipe), recipe,
                 {"--serial", std::to_string(channels), "--bitrate", "48", "--max-delay", "40"});
      const auto bytes = bytesOf(folder / "a");
      add("channels" + std::to_string(channels), bytes);
      chain.insert(chain.end(), bytes.begin(), bytes.end());
    }
    add("chain", chain);
    return seeds;
  }
  const auto wavPack = [&](std::string name, const SignalRecipe& recipe,
                           std::vector<std::string> options) {
    options.push_back("--blocksize=256");
    encodeWavPack(folder / "a.wv", makeSignal(recipe), recipe, options);
    const auto companion = std::filesystem::exists(folder / "a.wvc") ? bytesOf(folder / "a.wvc")
                                                                     : std::vector<std::byte>();
    std::filesystem::remove(folder / "a.wvc");
    add(std::move(name), bytesOf(folder / "a.wv"), companion);
  };
  wavPack("stereo16", {.frames = 2000, .signal = sine}, {});
  wavPack("fast24", {.channels = 6, .bits = 24, .frames = 600, .signal = sine}, {"-f"});
  wavPack("high8", {.channels = 1, .bits = 8, .frames = 2000}, {"-hh"});
  wavPack("noise32", {.bits = 32, .frames = 600}, {});
  wavPack("float", {.bits = 32, .frames = 1000, .isFloat = true}, {});
  wavPack("hybrid", {.frames = 2000, .signal = sine}, {"-b4"});
  wavPack("corrected", {.frames = 2000, .signal = sine}, {"-b4", "-c"});
  wavPack("dsd", {.bits = 1, .frames = 2000, .sampleRate = 2'822'400}, {});
  return seeds;
}

}  // namespace velorin::test
