#include "library/metadata/BitDepth.h"

#include <algorithm>
#include <array>

namespace velorin {
namespace {

constexpr std::size_t kFormHeaderBytes = 12;  // mark, size and kind of the file
constexpr std::size_t kChunkHeaderBytes = 8;

constexpr std::uint32_t kWavePcm = 1;
constexpr std::uint32_t kWaveFloat = 3;
constexpr std::uint32_t kWaveExtensible = 0xFFFE;

// The AIFC codings that keep samples as they are: words of either order and floating point.
constexpr std::array<std::string_view, 11> kPlainCodings = {
    "NONE", "twos", "sowt", "in24", "in32", "23ni", "raw ", "fl32", "FL32", "fl64", "FL64"};

/// The data of the first chunk of that name, as far as it is in the head.
HeaderBytes findChunk(HeaderBytes head, std::string_view name, bool isBigEndian) {
  std::uint64_t at = kFormHeaderBytes;
  while (at + kChunkHeaderBytes <= head.size()) {
    const std::uint64_t size =
        isBigEndian ? bigEndian32(head, at + 4) : littleEndian32(head, at + 4);
    const std::uint64_t dataAt = at + kChunkHeaderBytes;
    if (hasMark(head, at, name)) {
      return head.subspan(dataAt, std::min<std::uint64_t>(size, head.size() - dataAt));
    }
    at = dataAt + size + size % 2;
  }
  return {};
}

std::optional<int> ifPositive(std::uint32_t bits) {
  return bits > 0 ? std::optional(static_cast<int>(bits)) : std::nullopt;
}

std::optional<int> depthOfAiff(HeaderBytes head) {
  const HeaderBytes common = findChunk(head, "COMM", /*isBigEndian=*/true);
  if (common.size() < 8) return std::nullopt;
  const bool isCompressed = hasMark(head, 8, "AIFC") && common.size() >= 22;
  if (isCompressed &&
      std::ranges::find(kPlainCodings, asText(common.subspan(18, 4))) == kPlainCodings.end()) {
    return 0;
  }
  return ifPositive(bigEndian16(common, 6));
}

std::optional<int> depthOfWave(HeaderBytes head) {
  const HeaderBytes format = findChunk(head, "fmt ", /*isBigEndian=*/false);
  if (format.size() < 16) return std::nullopt;
  const std::uint32_t container = littleEndian16(format, 14);
  std::uint32_t coding = littleEndian16(format, 0);
  std::uint32_t bits = container;
  if (coding == kWaveExtensible && format.size() >= 26) {
    const std::uint32_t valid = littleEndian16(format, 18);
    if (valid > 0 && valid < container) bits = valid;
    coding = littleEndian16(format, 24);
  }
  if (coding != kWavePcm && coding != kWaveFloat) return 0;
  return ifPositive(bits);
}

}  // namespace

bool hasBitDepthDetector(std::string_view extension) noexcept {
  return extension == "aiff" || extension == "aif" || extension == "wav";
}

std::optional<int> detectBitDepth(HeaderBytes head) {
  if (hasMark(head, 0, "FORM")) return depthOfAiff(head);
  const bool isWave =
      hasMark(head, 0, "RIFF") || hasMark(head, 0, "RF64") || hasMark(head, 0, "BW64");
  if (isWave && hasMark(head, 8, "WAVE")) return depthOfWave(head);
  return std::nullopt;
}

}  // namespace velorin
