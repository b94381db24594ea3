// Files of one-bit audio made at run time, together with the bits that went into them.
#pragma once

#include <cstdint>
#include <filesystem>
#include <vector>

#include "engine/dsd/DSDLayout.h"

namespace velorin::test {

/// Bytes of one-bit sound by channel, the oldest sample of a byte on top.
using OneBitSound = std::vector<std::vector<std::uint8_t>>;

/// A sine by a sigma-delta modulator of fifth order, channel c at (c + 1) times the frequency. Its
/// noise lies at -120 dB and below up to 1/141 of the rate (20 kHz for DSD64).
struct SineRecipe {
  DSDRate rate = DSDRate::dsd64;
  unsigned channels = 2;
  std::size_t bytes = 35'280;  ///< of each channel; the default is 0.1 s of DSD64
  double frequency = 1000;     ///< Hz
  double amplitude = 0.5;  ///< of full modulation, up to 0.6; 0.5 is the reference level of SACD
};
OneBitSound modulatedSine(const SineRecipe& recipe);

/// Any bytes at all, the same for the same seed.
OneBitSound oneBitNoise(unsigned channels, std::size_t bytes, std::uint32_t seed = 1);

/// The bytes of each channel from `from` on, at most `count`.
OneBitSound cut(const OneBitSound& sound, std::size_t from, std::size_t count);

/// How the sound is put in a file.
struct DSDRecipe {
  DSDFormat format = DSDFormat::dsf;
  DSDRate rate = DSDRate::dsd64;
  bool hasTrailer = false;  ///< ID3 behind a DSF's sound; COMT, DIIN and ID3 behind a DSDIFF's
  std::uint32_t blockSize = 4096;       ///< of DSF
  bool statesCount = true;              ///< DSF: false leaves the sample count 0
  std::uint8_t filler = 0;              ///< DSF: what the last blocks are filled up with
  bool isMostSignificantFirst = false;  ///< DSF: states 8 bits per sample, bytes as they are
};

std::vector<std::byte> dsdFile(const OneBitSound& sound, const DSDRecipe& recipe = {});

void writeFile(const std::filesystem::path& path, const std::vector<std::byte>& bytes);

}  // namespace velorin::test
