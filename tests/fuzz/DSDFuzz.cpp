// Any bytes as a DSF or DSDIFF file: what opens keeps its promises, however it is read.
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "engine/dsd/DSDDecoder.h"
#include "engine/memory/MemoryFileHandle.h"
#include "foundation/Log.h"

namespace {

using namespace velorin;

constexpr std::uint32_t kMostFrames = 3000;
constexpr std::size_t kScriptBytes = 9;

void require(bool kept, const char* promise) {
  if (kept) return;
  std::fprintf(stderr, "broken promise: %s\n", promise);
  std::abort();
}

void readOnce(DSDDecoder& decoder, PlanarBuffers& buffers, std::uint32_t frames) {
  const std::int64_t before = decoder.currentPosition();
  const DecodeResult result = decoder.read(buffers.list(), frames, true);
  require(result.status == 0, "a read succeeds");
  require(result.frames <= frames, "no more frames than wanted");
  require(decoder.currentPosition() == before + result.frames, "the position counts frames");
  require(decoder.currentPosition() <= decoder.totalFrames(), "nothing behind the last frame");
  // A file in RAM is not cut short while it is read: what the head promises is there.
  require(result.frames == frames || decoder.currentPosition() == decoder.totalFrames(),
          "a short read is the end");
  for (std::uint32_t channel = 0; channel < decoder.channels(); ++channel) {
    const float* const samples = buffers.list().channel<float>(channel);
    for (std::uint32_t i = 0; i < result.frames; ++i) {
      // The filters' taps add up to less than 1.8 in size, the stages' to less than 1.4 each.
      require(std::fabs(samples[i]) < 20, "samples stay near full scale");
    }
  }
}

void drive(DSDDecoder& decoder, const unsigned char* script) {
  PlanarBuffers buffers(decoder.channels(), kMostFrames, sizeof(float));
  decoder.prepareDSDtoPCM(1 << script[0] % 10);
  for (std::size_t i = 1; i + 1 < kScriptBytes; i += 2) {
    readOnce(decoder, buffers, script[i + 1] * 11u);
    const std::int64_t target = decoder.totalFrames() * script[i] / 256;
    const std::int64_t before = decoder.currentPosition();
    const bool reached = decoder.seek(target);
    require(decoder.currentPosition() == (reached ? target : before), "a seek arrives or stays");
  }
  readOnce(decoder, buffers, kMostFrames);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  static const bool isQuiet = (log::setSink([](log::Level, std::string_view) {}), true);
  if (!isQuiet || size < kScriptBytes) return 0;
  const auto file = std::as_bytes(std::span(data, size).subspan(kScriptBytes));
  for (const DSDFormat format : {DSDFormat::dsf, DSDFormat::dsdiff}) {
    auto made = DSDDecoder::create(std::make_unique<MemoryFileHandle>(file), format);
    if (made) {
      drive(*made.value(), data);
      auto encoder = DoPEncoder::create(std::make_unique<MemoryFileHandle>(file), format);
      encoder.value()->seekDSD(data[0] / 1000.0);
      PlanarBuffers words(1, kMostFrames, sizeof(std::int32_t));
      require(fillDoP(*encoder.value(), words.list(), kMostFrames) <= kMostFrames, "DoP fits");
    } else {
      require(!made.error().text.empty(), "an error has a text");
    }
  }
  return 0;
}
