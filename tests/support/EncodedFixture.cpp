#include "support/EncodedFixture.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <fstream>
#include <numbers>
#include <random>
#include <stdexcept>

#include "support/ChildProcess.h"

namespace velorin::test {
namespace {

/// Interleaved little-endian samples of so many bytes, taken from the top of the words.
std::vector<std::byte> rawBytes(const Words& signal, unsigned bytes, std::size_t from,
                                std::size_t to) {
  std::vector<std::byte> raw;
  for (std::size_t i = from; i < std::min(to, signal[0].size()); ++i) {
    for (const auto& channel : signal) {
      const auto word = static_cast<std::uint32_t>(channel[i]);
      for (unsigned b = 4 - bytes; b < 4; ++b) raw.push_back(static_cast<std::byte>(word >> 8 * b));
    }
  }
  return raw;
}

void run(std::vector<std::string> command, const std::filesystem::path& raw,
         const std::filesystem::path& made) {
  std::filesystem::remove(made);
  const std::string said = runProgram(command, std::chrono::seconds(60));
  std::filesystem::remove(raw);
  if (!std::filesystem::exists(made)) throw std::runtime_error(command[0] + ": " + said);
}

}  // namespace

Words makeSignal(const SignalRecipe& recipe) {
  std::mt19937 random(recipe.bits * 100 + recipe.channels);
  Words words(recipe.channels, std::vector<std::int32_t>(recipe.frames));
  for (std::uint32_t i = 0; i < recipe.frames; ++i) {
    for (unsigned c = 0; c < recipe.channels; ++c) {
      const double phase =
          2 * std::numbers::pi * 441 * (c + 1) * static_cast<double>(i) / recipe.sampleRate;
      const bool isSine = recipe.signal == SignalRecipe::Signal::sine;
      const double value =
          isSine ? 0.5 * std::sin(phase) : static_cast<double>(random()) / (1u << 31) - 1;
      if (recipe.isFloat) {
        words[c][i] = std::bit_cast<std::int32_t>(static_cast<float>(isSine ? value : 4 * value));
      } else {
        const double scaled = std::clamp(value * 2147483648.0, -2147483648.0, 2147483647.0);
        const auto word = static_cast<std::uint32_t>(static_cast<std::int32_t>(scaled));
        words[c][i] = static_cast<std::int32_t>(word >> (32 - recipe.bits) << (32 - recipe.bits));
      }
    }
  }
  return words;
}

void encodeWavPack(const std::filesystem::path& path, const Words& signal,
                   const SignalRecipe& recipe, const std::vector<std::string>& options,
                   std::size_t from, std::size_t to) {
  const std::filesystem::path raw = path.native() + ".raw";
  writeBytes(raw, rawBytes(signal, recipe.bits <= 1 ? 1 : (recipe.bits + 7) / 8, from, to));
  std::vector<std::string> command = {"wavpack", "-q", "-y"};
  command.insert(command.end(), options.begin(), options.end());
  // One bit means bytes of DSD, which have no sign.
  const char* const kind = recipe.isFloat ? "f,{},le" : recipe.bits <= 1 ? ",{}" : "s,{},le";
  command.push_back(fmt::format("--raw-pcm={},{}", recipe.sampleRate, recipe.bits) +
                    fmt::format(fmt::runtime(kind), recipe.channels));
  command.insert(command.end(), {raw.native(), "-o", path.native()});
  run(command, raw, path);
}

void encodeOpus(const std::filesystem::path& path, const Words& signal, const SignalRecipe& recipe,
                const std::vector<std::string>& options, std::size_t from, std::size_t to) {
  const std::filesystem::path raw = path.native() + ".raw";
  writeBytes(raw, rawBytes(signal, 2, from, to));
  std::vector<std::string> command = {"opusenc", "--quiet", "--raw", "--serial", "1"};
  command.insert(command.end(), options.begin(), options.end());
  command.insert(command.end(), {"--raw-rate", std::to_string(recipe.sampleRate), "--raw-chan",
                                 std::to_string(recipe.channels), raw.native(), path.native()});
  run(command, raw, path);
}

std::vector<std::byte> bytesOf(const std::filesystem::path& path) {
  std::vector<std::byte> bytes(std::filesystem::file_size(path));
  std::ifstream(path, std::ios::binary)
      .read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  return bytes;
}

void writeBytes(const std::filesystem::path& path, const std::vector<std::byte>& bytes) {
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
}

}  // namespace velorin::test
