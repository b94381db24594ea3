#include "library/metadata/MadeFiles.h"

#include <algorithm>
#include <fstream>
#include <iterator>

namespace velorin::test {

void makeTone(const std::vector<std::string>& outputArguments) {
  std::vector<std::string> command = {
      "ffmpeg", "-v",    "error", "-y",
      "-f",     "lavfi", "-i",    "sine=frequency=440:duration=2:sample_rate=44100"};
  command.insert(command.end(), outputArguments.begin(), outputArguments.end());
  runProgram(command, std::chrono::seconds(30));
}

void writeBytes(const std::filesystem::path& path, std::string_view bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

std::string readBytes(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::string littleEndianBytes(std::uint64_t value, int count) {
  std::string bytes;
  for (int i = 0; i < count; ++i) bytes += static_cast<char>(value >> (8 * i));
  return bytes;
}

std::string bigEndianBytes(std::uint64_t value, int count) {
  std::string bytes = littleEndianBytes(value, count);
  std::ranges::reverse(bytes);
  return bytes;
}

std::string dsfBytes(std::uint32_t rate, std::uint32_t channels, std::uint64_t samples) {
  constexpr std::uint64_t kBlock = 4096;
  const auto le = littleEndianBytes;
  const std::uint64_t blocks = (samples + kBlock * 8 - 1) / (kBlock * 8);
  const std::uint64_t data = blocks * kBlock * channels;
  return "DSD " + le(28, 8) + le(92 + data, 8) + le(0, 8) + "fmt " + le(52, 8) + le(1, 4) +
         le(0, 4) + le(2, 4) + le(channels, 4) + le(rate, 4) + le(1, 4) + le(samples, 8) +
         le(kBlock, 4) + le(0, 4) + "data" + le(12 + data, 8) + std::string(data, '\x69');
}

std::string dffBytes(std::uint32_t rate, std::uint32_t channels, std::uint64_t bytesPerChannel,
                     std::string_view soundChunk) {
  const auto be = bigEndianBytes;
  const std::string properties =
      "SND FS  " + be(4, 8) + be(rate, 4) + "CHNL" + be(2, 8) + be(channels, 2);
  const std::string sound(bytesPerChannel * channels, '\x69');
  const std::string chunks = "FVER" + be(4, 8) + be(0x01050000, 4) + "ODD " + be(3, 8) + "abc" +
                             '\0' + "PROP" + be(properties.size(), 8) + properties +
                             std::string(soundChunk) + be(sound.size(), 8) + sound;
  return "FRM8" + be(chunks.size() + 4, 8) + "DSD " + chunks;
}

}  // namespace velorin::test
