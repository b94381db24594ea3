// The hot operations of the vector layer, in every instruction set that this machine has.
#include <array>
#include <random>

#include "bench/Bench.h"
#include "platform/vector/PCMPacking.h"
#include "platform/vector/Vector.h"
#include "platform/vector/VectorKernels.h"

namespace velorin::bench {
namespace {

constexpr std::size_t kFrames = 4096;
constexpr int kRepeats = 2000;

const char* nameOf(vector::Level level) {
  constexpr std::array kNames = {"scalar", "SSE2", "AVX2", "AVX-512"};
  return kNames[static_cast<std::size_t>(level)];
}

template <class Work>
double samplesPerSecond(std::size_t samples, Work&& work) {
  const double seconds = cpuSecondsOf(5, [&] {
    for (int i = 0; i < kRepeats; ++i) {
      work();
      keep(i);
    }
  });
  return static_cast<double>(samples) * kRepeats / seconds / 1e9;
}

const Registration kVector("vector", [](BenchReport& report) {
  std::mt19937 random(1);
  std::vector<float> left(kFrames);
  std::vector<float> right(kFrames);
  std::vector<std::int32_t> words(kFrames);
  for (std::size_t i = 0; i < kFrames; ++i) {
    left[i] = static_cast<float>(random() / 2147483648.0 - 1);
    right[i] = static_cast<float>(random() / 2147483648.0 - 1);
    words[i] = static_cast<std::int32_t>(random());
  }
  std::vector<float> out(kFrames);
  std::vector<std::byte> stream(kFrames * 8);
  const float* const planes[] = {left.data(), right.data()};
  for (const vector::Level level : vector::availableLevels()) {
    vector::setLevel(level);
    const std::string suffix = std::string(", ") + nameOf(level);
    const char* const unit = "Gsamples/s";
    report.add(
        "volume" + suffix,
        samplesPerSecond(kFrames,
                         [&] { vector::multiplyByScalar(left.data(), 0.5f, out.data(), kFrames); }),
        unit);
    report.add(
        "int32 to float" + suffix,
        samplesPerSecond(
            kFrames, [&] { vector::int32ToFloat(words.data(), 0x1p-31f, out.data(), kFrames); }),
        unit);
    report.add("stereo float to packed int24" + suffix,
               samplesPerSecond(2 * kFrames,
                                [&] {
                                  vector::interleave(planes, 2, kFrames,
                                                     vector::PCMWord::int24Packed, stream.data());
                                }),
               unit);
    report.add(
        "stereo float to int32" + suffix,
        samplesPerSecond(
            2 * kFrames,
            [&] { vector::interleave(planes, 2, kFrames, vector::PCMWord::int32, stream.data()); }),
        unit);
  }
  vector::setLevel(vector::availableLevels().back());
});

}  // namespace
}  // namespace velorin::bench
