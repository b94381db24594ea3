// WAV files as another program would read them: chunk by chunk.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace velorin::test {

inline std::string bytesOf(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

template <class Number>
Number numberAt(const std::string& bytes, std::size_t at) {
  Number value;
  std::memcpy(&value, bytes.data() + at, sizeof value);
  return value;
}

/// Zeros and no data for what is no WAV file.
struct Wav {
  std::uint16_t tag = 0;  ///< of the sub-format for WAVE_FORMAT_EXTENSIBLE
  bool extensible = false;
  std::uint16_t channels = 0;
  std::uint32_t rate = 0;
  std::uint16_t bits = 0;
  std::string data;

  static Wav read(const std::filesystem::path& path) {
    Wav wav;
    const std::string bytes = bytesOf(path);
    if (bytes.size() < 12 || bytes.substr(0, 4) != "RIFF" || bytes.substr(8, 4) != "WAVE" ||
        numberAt<std::uint32_t>(bytes, 4) != bytes.size() - 8) {
      return wav;
    }
    for (std::size_t at = 12; at + 8 <= bytes.size();) {
      const std::string id = bytes.substr(at, 4);
      const std::size_t size = numberAt<std::uint32_t>(bytes, at + 4);
      if (id == "fmt ") wav.readFormat(bytes, at + 8);
      if (id == "data") wav.data = bytes.substr(at + 8, size);
      at += 8 + size + size % 2;
    }
    return wav;
  }

  std::size_t bytesPerFrame() const { return std::size_t{channels} * bits / 8; }
  std::size_t frames() const { return data.empty() ? 0 : data.size() / bytesPerFrame(); }
  std::string range(std::size_t first, std::size_t count) const {
    return data.substr(first * bytesPerFrame(), count * bytesPerFrame());
  }

 private:
  void readFormat(const std::string& bytes, std::size_t at) {
    tag = numberAt<std::uint16_t>(bytes, at);
    channels = numberAt<std::uint16_t>(bytes, at + 2);
    rate = numberAt<std::uint32_t>(bytes, at + 4);
    bits = numberAt<std::uint16_t>(bytes, at + 14);
    extensible = tag == 0xFFFE;
    if (extensible) tag = numberAt<std::uint16_t>(bytes, at + 24);
  }
};

/// Where two long texts first differ; EXPECT_EQ would print megabytes.
inline std::string firstDifference(const std::string& a, const std::string& b) {
  if (a == b) return "";
  const auto at = std::mismatch(a.begin(), a.end(), b.begin(), b.end()).first - a.begin();
  return "sizes " + std::to_string(a.size()) + " and " + std::to_string(b.size()) +
         ", first difference at byte " + std::to_string(at);
}

}  // namespace velorin::test
