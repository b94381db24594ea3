// FLAC files made at run time, together with the samples that went into them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <vector>

namespace velorin::test {

/// What to make. The same recipe gives the same bytes every time.
struct FlacRecipe {
  enum class Signal { noise, sine, steady };
  unsigned channels = 2;         ///< 1 to 8
  unsigned bits = 16;            ///< 4 to 32
  unsigned sampleRate = 44'100;  ///< up to 655,350
  unsigned blockSize = 4096;     ///< 16 to 65,535
  std::uint32_t frames = 10'000;
  Signal signal = Signal::noise;  ///< full-scale noise holds both ends of the range; 997 Hz sine
  /// Of steady: the file is divided into as many equal stretches, in each of which the first
  /// channel stands at half the cosine and the others at half the sine of the angle (radians).
  /// Gains and filters keep the angle, so what is heard tells which stretch it is.
  std::vector<double> angles = {};
  std::uint32_t seed = 1;
  bool statesTotal = true;  ///< false: STREAMINFO says 0 total samples
  bool ogg = false;
};

/// Integer samples of `recipe.bits` bits, by channel, and the file they were encoded to.
struct FlacFixture {
  std::vector<std::vector<std::int32_t>> samples;
  std::vector<std::byte> bytes;

  /// Encodes; throws std::runtime_error where libFLAC refuses the recipe.
  static FlacFixture make(const FlacRecipe& recipe);

  void write(const std::filesystem::path& path) const;
};

/// Values to write over those that a native FLAC file states in STREAMINFO; 0 total is possible,
/// so absent members are negative.
struct StreamInfoPatch {
  std::int64_t sampleRate = -1;
  std::int64_t channels = -1;
  std::int64_t bits = -1;
  std::int64_t totalSamples = -1;
};

/// Makes the header lie.
void patchStreamInfo(std::vector<std::byte>& flac, const StreamInfoPatch& patch);

}  // namespace velorin::test
