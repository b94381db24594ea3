#include "support/DSDFixture.h"

#include <array>
#include <cmath>
#include <fstream>
#include <numbers>
#include <random>
#include <stdexcept>
#include <string_view>

namespace velorin::test {
namespace {

/// One bit for each sample, by error feedback: the bit's error comes back through NTF - 1. The
/// noise transfer function NTF is a Butterworth high-pass whose gain stays below 1.5, which keeps a
/// fifth order stable (Lee's rule), with its zeros spread over the band (Schreier's places for
/// order 5).
class Modulator {
 public:
  bool next(double sample) noexcept {
    double wanted = sample;
    double shaped = 0;
    for (std::size_t i = 0; i < kOrder; ++i) {
      shaped += (kZeros[i] - kPoles[i]) * _errors[i] - kPoles[i] * _shaped[i];
    }
    wanted += shaped;
    const bool bit = wanted >= 0;
    for (std::size_t i = kOrder; --i > 0;) {
      _errors[i] = _errors[i - 1];
      _shaped[i] = _shaped[i - 1];
    }
    _errors[0] = (bit ? 1.0 : -1.0) - wanted;
    _shaped[0] = shaped;
    return bit;
  }

 private:
  static constexpr std::size_t kOrder = 5;
  // Of z^-1 to z^-5, behind a leading 1.
  static constexpr std::array<double, kOrder> kZeros = {-4.997322897749881, 9.991970075549375,
                                                        -9.991970075549375, 4.997322897749881, -1};
  static constexpr std::array<double, kOrder> kPoles = {-4.19095916554567, 7.081522209714922,
                                                        -6.024384445176061, 2.578341669078427,
                                                        -0.4438498082172639};
  std::array<double, kOrder> _errors{};
  std::array<double, kOrder> _shaped{};
};

class FileWriter {
 public:
  void mark(std::string_view text) {
    for (const char c : text) byte(static_cast<std::uint8_t>(c));
  }
  void byte(std::uint8_t value) { bytes.push_back(static_cast<std::byte>(value)); }
  void little(std::uint64_t value, int size) {
    for (int i = 0; i < size; ++i) byte(static_cast<std::uint8_t>(value >> 8 * i));
  }
  void big(std::uint64_t value, int size) {
    for (int i = size; i-- > 0;) byte(static_cast<std::uint8_t>(value >> 8 * i));
  }
  void chunk(std::string_view id, const std::vector<std::byte>& body) {
    mark(id);
    big(body.size(), 8);
    bytes.insert(bytes.end(), body.begin(), body.end());
    if (body.size() % 2 != 0) byte(0);
  }
  std::vector<std::byte> bytes;
};

std::uint8_t reversed(std::uint8_t byte) {
  unsigned result = 0;
  for (int bit = 0; bit < 8; ++bit) result = result << 1 | (byte >> bit & 1u);
  return static_cast<std::uint8_t>(result);
}

// Loud as sound: who plays it is caught.
const std::vector<std::byte> kTrailer(777, std::byte{0xff});

std::vector<std::byte> dsf(const OneBitSound& sound, const DSDRecipe& recipe) {
  const std::size_t bytes = sound[0].size();
  const std::size_t sets = (bytes + recipe.blockSize - 1) / recipe.blockSize;
  const std::uint64_t data = std::uint64_t{sets} * recipe.blockSize * sound.size();
  const std::uint64_t trailerAt = recipe.hasTrailer ? 92 + data : 0;
  FileWriter out;
  out.mark("DSD ");
  out.little(28, 8);
  out.little(92 + data + (recipe.hasTrailer ? kTrailer.size() + 3 : 0), 8);
  out.little(trailerAt, 8);
  out.mark("fmt ");
  out.little(52, 8);
  out.little(1, 4);
  out.little(0, 4);
  out.little(sound.size() < 3 ? sound.size() : sound.size() + 1, 4);
  out.little(sound.size(), 4);
  out.little(static_cast<std::uint32_t>(recipe.rate), 4);
  out.little(recipe.isMostSignificantFirst ? 8 : 1, 4);
  out.little(recipe.statesCount ? bytes * 8 : 0, 8);
  out.little(recipe.blockSize, 4);
  out.little(0, 4);
  out.mark("data");
  out.little(data + 12, 8);
  for (std::size_t set = 0; set < sets; ++set) {
    for (const auto& channel : sound) {
      for (std::size_t i = set * recipe.blockSize; i < (set + 1) * recipe.blockSize; ++i) {
        const std::uint8_t byte = i < bytes ? channel[i] : recipe.filler;
        out.byte(recipe.isMostSignificantFirst ? byte : reversed(byte));
      }
    }
  }
  if (recipe.hasTrailer) {
    out.mark("ID3");
    out.bytes.insert(out.bytes.end(), kTrailer.begin(), kTrailer.end());
  }
  return std::move(out.bytes);
}

std::vector<std::byte> dsdiff(const OneBitSound& sound, const DSDRecipe& recipe) {
  FileWriter version, properties, rate, channels, compression, interleaved, form;
  version.big(0x01050000, 4);
  rate.big(static_cast<std::uint32_t>(recipe.rate), 4);
  channels.big(sound.size(), 2);
  for (std::size_t i = 0; i < sound.size(); ++i) channels.mark(i == 0 ? "SLFT" : "SRGT");
  compression.mark("DSD \x0enot compressed");
  compression.byte(0);
  properties.mark("SND ");
  properties.chunk("FS  ", rate.bytes);
  properties.chunk("CHNL", channels.bytes);
  properties.chunk("CMPR", compression.bytes);
  for (std::size_t i = 0; i < sound[0].size(); ++i) {
    for (const auto& channel : sound) interleaved.byte(channel[i]);
  }
  form.mark("DSD ");
  form.chunk("FVER", version.bytes);
  form.chunk("PROP", properties.bytes);
  form.chunk("DSD ", interleaved.bytes);
  if (recipe.hasTrailer) {
    for (const char* const id : {"COMT", "DIIN", "ID3 "}) form.chunk(id, kTrailer);
  }
  FileWriter out;
  out.chunk("FRM8", form.bytes);
  return std::move(out.bytes);
}

}  // namespace

OneBitSound modulatedSine(const SineRecipe& recipe) {
  OneBitSound sound(recipe.channels, std::vector<std::uint8_t>(recipe.bytes));
  for (unsigned channel = 0; channel < recipe.channels; ++channel) {
    Modulator modulator;
    const double step =
        2 * std::numbers::pi * recipe.frequency * (channel + 1) / hertz(recipe.rate);
    for (std::size_t i = 0; i < recipe.bytes * 8; ++i) {
      const bool bit = modulator.next(recipe.amplitude * std::sin(step * static_cast<double>(i)));
      sound[channel][i / 8] |= static_cast<std::uint8_t>(bit << (7 - i % 8));
    }
  }
  return sound;
}

OneBitSound oneBitNoise(unsigned channels, std::size_t bytes, std::uint32_t seed) {
  std::mt19937 random(seed);
  OneBitSound sound(channels, std::vector<std::uint8_t>(bytes));
  for (auto& channel : sound) {
    for (auto& byte : channel) byte = static_cast<std::uint8_t>(random() >> 8);
  }
  return sound;
}

OneBitSound cut(const OneBitSound& sound, std::size_t from, std::size_t count) {
  OneBitSound part;
  for (const auto& channel : sound) {
    const std::size_t first = std::min(from, channel.size());
    const std::size_t last = first + std::min(count, channel.size() - first);
    part.emplace_back(channel.begin() + static_cast<std::ptrdiff_t>(first),
                      channel.begin() + static_cast<std::ptrdiff_t>(last));
  }
  return part;
}

std::vector<std::byte> dsdFile(const OneBitSound& sound, const DSDRecipe& recipe) {
  return recipe.format == DSDFormat::dsf ? dsf(sound, recipe) : dsdiff(sound, recipe);
}

void writeFile(const std::filesystem::path& path, const std::vector<std::byte>& bytes) {
  std::ofstream file(path, std::ios::binary);
  file.write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
  if (!file.flush()) throw std::runtime_error("cannot write " + path.string());
}

}  // namespace velorin::test
