// Files made by the real WavPack and Opus encoders at run time, with the samples that went in.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace velorin::test {

/// Samples by channel. Integers stand at the top of their 32-bit words; floats are bit patterns.
using Words = std::vector<std::vector<std::int32_t>>;

struct SignalRecipe {
  enum class Signal { noise, sine };
  unsigned channels = 2;
  unsigned bits = 16;  ///< 1 to 32; the bits below are 0
  std::uint32_t frames = 10'000;
  Signal signal = Signal::noise;  ///< full-scale noise, or a sine of 441 Hz × (channel + 1)
  bool isFloat = false;           ///< bits is 32; noise then goes to ±4
  unsigned sampleRate = 48'000;
};

/// The same recipe gives the same samples every time.
Words makeSignal(const SignalRecipe& recipe);

/// Encodes frames [from, to) of a signal by the wavpack program, with its options. Throws
/// std::runtime_error with what the encoder said when it makes no file.
void encodeWavPack(const std::filesystem::path& path, const Words& signal,
                   const SignalRecipe& recipe, const std::vector<std::string>& options = {},
                   std::size_t from = 0, std::size_t to = SIZE_MAX);

/// The same by the opusenc program, from 16 bits.
void encodeOpus(const std::filesystem::path& path, const Words& signal, const SignalRecipe& recipe,
                const std::vector<std::string>& options = {}, std::size_t from = 0,
                std::size_t to = SIZE_MAX);

std::vector<std::byte> bytesOf(const std::filesystem::path& path);
void writeBytes(const std::filesystem::path& path, const std::vector<std::byte>& bytes);

}  // namespace velorin::test
