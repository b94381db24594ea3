#include "library/metadata/AacConfig.h"

#include <array>
#include <limits>

namespace velorin {
namespace {

constexpr int kMostBoxes = 256;  // of one level; a file has about ten
constexpr std::uint64_t kBoxHeadBytes = 8;

/// The content of a box.
struct Box {
  std::uint64_t begin = 0;
  std::uint64_t end = 0;
};

/// The next box of the name from `at` on within the outer one.
std::optional<Box> findBox(const ReadAt& read, std::uint64_t at, std::uint64_t outerEnd,
                           std::string_view name) {
  for (int count = 0; count < kMostBoxes && at < outerEnd; ++count) {
    std::array<std::byte, 16> room;
    const HeaderBytes head(room.data(), read(at, room));
    if (head.size() < kBoxHeadBytes) break;
    std::uint64_t size = bigEndian32(head, 0);
    std::uint64_t headBytes = kBoxHeadBytes;
    if (size == 1 && head.size() == room.size()) {
      size = bigEndian<8>(head, 8);
      headBytes = room.size();
    } else if (size == 0) {
      size = outerEnd - at;  // to the end of what it is in
    }
    if (size < headBytes) break;
    const std::uint64_t end = size > outerEnd - at ? outerEnd : at + size;
    if (hasMark(head, 4, name)) return Box{at + headBytes, end};
    at = end;
  }
  return std::nullopt;
}

/// Most significant bit first; zeros behind the end, which `isOver` then tells.
class Bits {
 public:
  explicit Bits(HeaderBytes bytes) : _bytes(bytes) {}
  unsigned take(unsigned count) {
    unsigned value = 0;
    for (; count > 0; --count, ++_at) {
      const unsigned byte =
          _at / 8 < _bytes.size() ? std::to_integer<unsigned>(_bytes[_at / 8]) : 0U;
      value = value << 1 | (byte >> (7 - _at % 8) & 1U);
    }
    return value;
  }
  bool isOver() const { return _at > _bytes.size() * 8; }

 private:
  HeaderBytes _bytes;
  std::size_t _at = 0;
};

/// One descriptor: its tag, and its content as far as it is there. Moves `bytes` behind it.
struct Descriptor {
  unsigned tag = 0;
  HeaderBytes content;
};

std::optional<Descriptor> takeDescriptor(HeaderBytes& bytes) {
  if (bytes.empty()) return std::nullopt;
  Descriptor result{std::to_integer<unsigned>(bytes[0]), {}};
  std::size_t size = 0;
  std::size_t at = 1;
  // Seven bits a byte, up to four of them; the top bit says that another follows.
  for (bool hasMore = true; hasMore; ++at) {
    if (at > 4 || at >= bytes.size()) return std::nullopt;
    const auto byte = std::to_integer<unsigned>(bytes[at]);
    size = size << 7 | (byte & 0x7FU);
    hasMore = (byte & 0x80U) != 0;
  }
  result.content = bytes.subspan(at, std::min(size, bytes.size() - at));
  bytes = bytes.subspan(at + result.content.size());
  return result;
}

/// The AudioSpecificConfig in the content of an `esds` box.
HeaderBytes configOf(HeaderBytes esds) {
  constexpr unsigned kStream = 3;
  constexpr unsigned kDecoder = 4;
  constexpr unsigned kDecoderInfo = 5;
  constexpr std::size_t kVersionBytes = 4;
  constexpr std::size_t kDecoderFields = 13;
  constexpr auto kMpeg4Audio = std::byte{0x40};
  if (esds.size() < kVersionBytes) return {};
  HeaderBytes bytes = esds.subspan(kVersionBytes);
  const auto stream = takeDescriptor(bytes);
  if (!stream || stream->tag != kStream || stream->content.size() < 3) return {};
  const auto flags = std::to_integer<unsigned>(stream->content[2]);
  // Dependence, address and clock may stand before what is looked for; music has none of them.
  if ((flags & 0xE0U) != 0) return {};
  bytes = stream->content.subspan(3);
  const auto decoder = takeDescriptor(bytes);
  if (!decoder || decoder->tag != kDecoder || decoder->content.size() < kDecoderFields ||
      decoder->content[0] != kMpeg4Audio) {
    return {};
  }
  bytes = decoder->content.subspan(kDecoderFields);
  const auto info = takeDescriptor(bytes);
  return info && info->tag == kDecoderInfo ? info->content : HeaderBytes{};
}

}  // namespace

std::optional<int> channelsOfAudioSpecificConfig(HeaderBytes config) {
  constexpr unsigned kEscape = 31;
  constexpr unsigned kParametricStereo = 29;
  constexpr unsigned kFirstLowRate = 6;  // 24 kHz; the greater the index the lower the rate
  constexpr std::array<int, 16> kChannels{0, 1, 2, 3, 4, 5, 6, 8, 0, 0, 0, 7, 8, 0, 8, 0};
  Bits bits(config);
  unsigned kind = bits.take(5);
  if (kind == kEscape) kind = 32 + bits.take(6);
  const unsigned rateIndex = bits.take(4);
  const unsigned statedRate = rateIndex == 15 ? bits.take(24) : 0;
  const int channels = kChannels[bits.take(4)];
  if (bits.isOver() || channels == 0) return std::nullopt;
  if (channels == 1) {
    if (kind == kParametricStereo) return 2;
    // Parametric stereo goes unsaid in some files, but only where the coded rate is a low one.
    const bool isLowRate = rateIndex == 15 ? statedRate <= 24'000 : rateIndex >= kFirstLowRate;
    if (isLowRate) return std::nullopt;
  }
  return channels;
}

std::optional<int> aacChannels(const ReadAt& read) {
  constexpr std::size_t kEntryBytes = 512;
  constexpr std::uint64_t kTableHeadBytes = 8;    // version, number of entries
  constexpr std::uint64_t kSoundEntryBytes = 28;  // before the boxes of an `mp4a`
  constexpr std::uint64_t kNoEnd = std::numeric_limits<std::int64_t>::max();
  const auto movie = findBox(read, 0, kNoEnd, "moov");
  if (!movie) return std::nullopt;
  std::uint64_t at = movie->begin;
  for (int count = 0; count < kMostBoxes; ++count) {
    const auto track = findBox(read, at, movie->end, "trak");
    if (!track) return std::nullopt;
    at = track->end;
    std::optional<Box> box = track;
    for (const char* name : {"mdia", "minf", "stbl", "stsd"}) {
      if (box) box = findBox(read, box->begin, box->end, name);
    }
    if (box) box = findBox(read, box->begin + kTableHeadBytes, box->end, "mp4a");
    if (box) box = findBox(read, box->begin + kSoundEntryBytes, box->end, "esds");
    if (!box) continue;
    std::array<std::byte, kEntryBytes> room;
    const auto wanted = std::min<std::uint64_t>(room.size(), box->end - box->begin);
    const std::size_t size = read(box->begin, std::span(room).first(wanted));
    return channelsOfAudioSpecificConfig(configOf(HeaderBytes(room.data(), size)));
  }
  return std::nullopt;
}

}  // namespace velorin
