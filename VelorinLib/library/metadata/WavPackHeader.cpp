#include "library/metadata/WavPackHeader.h"

#include <algorithm>
#include <array>

namespace velorin {
namespace {

constexpr std::string_view kMark = "wvpk";
constexpr std::size_t kBlockHeaderBytes = 32;

constexpr std::array<int, 15> kSampleRates = {6000,  8000,  9600,  11025, 12000,
                                              16000, 22050, 24000, 32000, 44100,
                                              48000, 64000, 88200, 96000, 192000};
constexpr std::size_t kRateInSubBlock = 15;

constexpr std::uint32_t kIdMask = 0x3F;
constexpr std::uint32_t kOddSize = 0x40;
constexpr std::uint32_t kLargeSize = 0x80;
constexpr std::uint32_t kChannelInfo = 13;
constexpr std::uint32_t kSampleRate = 39;

/// What the metadata of a block says beyond its header.
struct SubBlocks {
  std::optional<int> sampleRate;
  std::optional<int> channels;
};

int channelCount(HeaderBytes data) {
  const auto low = std::to_integer<int>(data[0]);
  // Many channels: 12 bits less one, the upper four in the third byte.
  if (data.size() < 6) return low;
  return (low | (std::to_integer<int>(data[2]) & 0xF) << 8) + 1;
}

SubBlocks readSubBlocks(HeaderBytes block) {
  SubBlocks found;
  std::size_t at = kBlockHeaderBytes;
  while (at + 2 <= block.size()) {
    const auto id = std::to_integer<std::uint32_t>(block[at]);
    const bool isLarge = (id & kLargeSize) != 0;
    const std::size_t dataAt = at + (isLarge ? 4 : 2);
    if (dataAt > block.size()) break;
    const std::size_t words =
        isLarge ? littleEndian<3>(block, at + 1) : littleEndian<1>(block, at + 1);
    std::size_t bytes = words * 2;
    at = dataAt + bytes;
    if (at > block.size()) break;
    if ((id & kOddSize) != 0 && bytes > 0) --bytes;
    const HeaderBytes data = block.subspan(dataAt, bytes);
    if ((id & kIdMask) == kSampleRate && bytes >= 3) {
      found.sampleRate = static_cast<int>(littleEndian<3>(data, 0));
    } else if ((id & kIdMask) == kChannelInfo && bytes >= 2) {
      found.channels = channelCount(data);
    }
  }
  return found;
}

}  // namespace

Result<WavPackHeader, HeaderFault> parseWavPackHeader(HeaderBytes head) {
  const std::size_t offset = asText(head).find(kMark);
  if (offset == std::string_view::npos) {
    return head.size() < kBlockHeaderBytes ? HeaderFault::tooShort : HeaderFault::badMagic;
  }
  HeaderBytes block = head.subspan(offset);
  if (block.size() < kBlockHeaderBytes) return HeaderFault::tooShort;
  block = block.first(std::min(block.size(), std::size_t{littleEndian32(block, 4)} + 8));
  if (block.size() < kBlockHeaderBytes) return HeaderFault::malformed;

  const std::uint32_t flags = littleEndian32(block, 24);
  const std::size_t rateIndex = flags >> 23 & 0xF;
  const bool isMono = (flags & 4) != 0;
  int sampleRate = rateIndex == kRateInSubBlock ? 0 : kSampleRates[rateIndex];
  int channels = isMono ? 1 : 2;
  if (rateIndex == kRateInSubBlock || !isMono) {
    const SubBlocks more = readSubBlocks(block);
    if (rateIndex == kRateInSubBlock) sampleRate = more.sampleRate.value_or(0);
    channels = more.channels.value_or(channels);
  }
  if (sampleRate < 1 || channels < 1) return HeaderFault::malformed;

  WavPackHeader header;
  header.offset = offset;
  header.properties.sampleRate = sampleRate;
  header.properties.channels = channels;
  header.properties.bitDepth = (static_cast<int>(flags & 3) + 1) * 8;
  const std::uint64_t low = littleEndian32(block, 12);
  header.hasLength = low != 0xFFFF'FFFF;
  if (header.hasLength) {
    // The upper byte counts in steps of one less than 2^32, as the low word is never all ones.
    const auto high = std::to_integer<std::uint64_t>(block[11]);
    header.properties.duration = static_cast<double>(low + high * 0xFFFF'FFFF) / sampleRate;
  }
  return header;
}

std::optional<std::uint64_t> wavPackLength(HeaderBytes tail) {
  const std::string_view text = asText(tail);
  std::size_t at = text.rfind(kMark);
  for (; at != std::string_view::npos; at = at == 0 ? at : text.rfind(kMark, at - 1)) {
    if (tail.size() - at >= kBlockHeaderBytes) {
      const HeaderBytes block = tail.subspan(at);
      const std::uint64_t samples = littleEndian32(block, 20);
      const std::uint64_t index =
          littleEndian32(block, 16) + (std::to_integer<std::uint64_t>(block[10]) << 32);
      // A block without samples holds the sums and texts at the end, its index is 0.
      if (samples > 0) return index + samples;
    }
    if (at == 0) break;
  }
  return std::nullopt;
}

}  // namespace velorin
