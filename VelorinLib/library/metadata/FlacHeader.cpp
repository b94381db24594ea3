#include "library/metadata/FlacHeader.h"

namespace velorin {
namespace {

constexpr std::size_t kShortestFile = 42;  // the mark, a block header and STREAMINFO
constexpr std::size_t kStreamInfoBytes = 34;
constexpr std::size_t kBeforeStreamInfo = 8;               // the mark and the block header
constexpr std::size_t kFieldsAt = kBeforeStreamInfo + 10;  // behind the block and frame sizes

}  // namespace

Result<AudioProperties, HeaderFault> parseFlacHeader(HeaderBytes head) {
  if (head.size() < kShortestFile) return HeaderFault::tooShort;
  if (!hasMark(head, 0, "fLaC")) return HeaderFault::badMagic;
  const auto blockType = std::to_integer<unsigned>(head[4]) & 0x7F;
  const std::size_t blockBytes = bigEndian<3>(head, 5);
  if (blockType != 0 || blockBytes < kStreamInfoBytes ||
      head.size() < blockBytes + kBeforeStreamInfo) {
    return HeaderFault::malformed;
  }
  // 20 bits of rate, 3 of channels, 5 of sample size and 36 of length.
  const std::uint64_t fields = bigEndian<8>(head, kFieldsAt);
  const auto rate = static_cast<int>(fields >> 44);
  const auto total = static_cast<double>(fields & 0xF'FFFF'FFFF);
  AudioProperties properties;
  if (rate > 0) {
    properties.sampleRate = rate;
    properties.duration = total / rate;
  }
  properties.channels = static_cast<int>(fields >> 41 & 0x7) + 1;
  properties.bitDepth = static_cast<int>(fields >> 36 & 0x1F) + 1;
  return properties;
}

}  // namespace velorin
