#include "fuzz/FlacDrive.h"

#include <cmath>
#include <cstring>

#include "engine/decoders/FLACDecoder.h"
#include "engine/memory/MemoryFileHandle.h"
#include "fuzz/DecoderDrive.h"
#include "support/FlacFixture.h"

namespace velorin::test {
namespace {

void keepsPromises(const FLACDecoder& decoder, const DecoderRead& read) {
  // Lost frames are counted where they are passed over.
  require(decoder.currentPosition() >= read.before + read.frames, "the position counts frames");
  require(read.frames == read.wanted || decoder.isEOF(), "a short read is the end");
  if (!read.asFloat) return;
  for (std::uint32_t channel = 0; channel < decoder.channels(); ++channel) {
    const float* samples = read.list.channel<float>(channel);
    for (std::uint32_t i = 0; i < read.frames; ++i) {
      require(std::fabs(samples[i]) <= 1.0f, "floats stay within full scale");
    }
  }
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
  runScript(decoder, input.first(kFlacScriptBytes), 400,
            [&](const DecoderRead& read) { keepsPromises(decoder, read); });
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
