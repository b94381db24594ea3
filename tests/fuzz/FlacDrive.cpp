#include "fuzz/FlacDrive.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "engine/decoders/FLACDecoder.h"
#include "engine/memory/MemoryFileHandle.h"
#include "support/FlacFixture.h"

namespace velorin::test {
namespace {

constexpr std::uint32_t kMaxRead = 5000;
constexpr int kMaxFinalReads = 400;

void require(bool kept, const char* promise) {
  if (kept) return;
  std::fprintf(stderr, "broken promise: %s\n", promise);
  std::abort();
}

void readOnce(FLACDecoder& decoder, PlanarBuffers& buffers, std::uint32_t frames, bool asFloat) {
  const std::int64_t before = decoder.currentPosition();
  const DecodeResult result = decoder.read(buffers.list(), frames, asFloat);
  require(result.status == 0, "a read succeeds");
  require(result.frames <= frames, "no more frames than wanted");
  require(decoder.currentPosition() >= before + result.frames, "the position counts frames");
  require(result.frames == frames || decoder.isEOF(), "a short read is the end");
  if (!asFloat) return;
  for (std::uint32_t channel = 0; channel < decoder.channels(); ++channel) {
    const float* samples = buffers.list().channel<float>(channel);
    for (std::uint32_t i = 0; i < result.frames; ++i) {
      require(std::fabs(samples[i]) <= 1.0f, "floats stay within full scale");
    }
  }
}

void seekOnce(FLACDecoder& decoder, std::int64_t target) {
  const std::int64_t before = decoder.currentPosition();
  const bool reached = decoder.seek(target);
  const std::int64_t expected = reached ? std::max<std::int64_t>(target, 0) : before;
  require(decoder.currentPosition() == expected, "a seek goes to its target or nowhere");
}

}  // namespace

void driveFlac(std::span<const std::uint8_t> input) {
  if (input.size() < kFlacScriptBytes) return;
  auto made = FLACDecoder::create(
      std::make_unique<MemoryFileHandle>(std::as_bytes(input.subspan(kFlacScriptBytes))));
  if (!made) {
    require(!made.error().text.empty(), "an error has a text");
    return;
  }
  FLACDecoder& decoder = *made.value();
  // One channel more than the file has, so that the silent one is exercised too.
  PlanarBuffers buffers(decoder.channels() + 1, kMaxRead, 4);
  // Each step takes two bytes: what to do, and how far.
  for (std::size_t i = 0; i + 1 < kFlacScriptBytes; i += 2) {
    const std::uint32_t amount = input[i + 1];
    switch (input[i] % 6) {
      case 0:
        readOnce(decoder, buffers, amount, false);
        break;
      case 1:
        readOnce(decoder, buffers, amount * 19, true);
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
  for (int i = 0; i < kMaxFinalReads && !decoder.isEOF(); ++i) {
    readOnce(decoder, buffers, kMaxRead, i % 2 == 0);
  }
}

std::vector<FlacSeed> flacSeeds() {
  std::vector<FlacSeed> seeds;
  const auto add = [&](std::string name, const FlacRecipe& recipe, std::uint8_t script,
                       const StreamInfoPatch& lie = {}) {
    FlacFixture fixture = FlacFixture::make(recipe);
    if (!recipe.ogg) patchStreamInfo(fixture.bytes, lie);
    std::vector<std::uint8_t> input(kFlacScriptBytes + fixture.bytes.size());
    for (std::size_t i = 0; i < kFlacScriptBytes; ++i) {
      input[i] = static_cast<std::uint8_t>(script + i * 29);
    }
    std::memcpy(input.data() + kFlacScriptBytes, fixture.bytes.data(), fixture.bytes.size());
    seeds.push_back({std::move(name), std::move(input)});
  };
  using Signal = FlacRecipe::Signal;
  const FlacRecipe sine{.blockSize = 256, .frames = 3000, .signal = Signal::sine};
  add("stereo16", sine, 0);
  FlacRecipe recipe = sine;
  recipe.bits = 24;
  recipe.channels = 6;
  recipe.frames = 600;
  add("surround24", recipe, 1);
  recipe = {.channels = 1, .bits = 32, .blockSize = 64, .frames = 500};
  add("noise32", recipe, 2);
  recipe = {.channels = 2, .bits = 4, .blockSize = 16, .frames = 700};
  add("noise4", recipe, 3);
  recipe = sine;
  recipe.statesTotal = false;
  add("unknownlength", recipe, 4);
  recipe.ogg = true;
  add("ogg", recipe, 5);
  add("liechannels", sine, 6, {.channels = 8, .bits = 24});
  add("liemono", sine, 7, {.channels = 1, .bits = 5});
  add("lietotal", sine, 8, {.totalSamples = std::int64_t{1} << 35});
  add("shorttotal", sine, 9, {.totalSamples = 100});
  return seeds;
}

}  // namespace velorin::test
