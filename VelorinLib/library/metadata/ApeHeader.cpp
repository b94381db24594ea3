#include "library/metadata/ApeHeader.h"

#include <algorithm>
#include <limits>

namespace velorin {
namespace {

constexpr std::uint32_t kFirstVersionWithDescriptor = 3980;

struct ApeFields {
  std::uint32_t blocksPerFrame = 0;
  std::uint32_t finalFrameBlocks = 0;
  std::uint32_t totalFrames = 0;
  std::uint32_t bitsPerSample = 0;
  std::uint32_t channels = 0;
  std::uint32_t sampleRate = 0;
};

/// The header behind the descriptor.
Result<ApeFields, HeaderFault> parseNew(HeaderBytes head) {
  if (head.size() < 76) return HeaderFault::tooShort;
  const std::size_t at = littleEndian32(head, 8);
  if (head.size() < at + 24) return HeaderFault::malformed;
  return ApeFields{.blocksPerFrame = littleEndian32(head, at + 4),
                   .finalFrameBlocks = littleEndian32(head, at + 8),
                   .totalFrames = littleEndian32(head, at + 12),
                   .bitsPerSample = littleEndian16(head, at + 16),
                   .channels = littleEndian16(head, at + 18),
                   .sampleRate = littleEndian32(head, at + 20)};
}

Result<ApeFields, HeaderFault> parseOld(HeaderBytes head, std::uint32_t version) {
  // Up to the frame count at 24, whose field must be there as well.
  if (head.size() < 28) return HeaderFault::tooShort;
  const std::uint32_t flags = littleEndian16(head, 8);
  ApeFields fields;
  fields.blocksPerFrame = version < 3900 ? 9216 : version < 3950 ? 73728 : 294912;
  fields.finalFrameBlocks = head.size() < 32 ? 0 : littleEndian32(head, 28);
  fields.totalFrames = littleEndian32(head, 24);
  fields.bitsPerSample = (flags & 1) != 0 ? 8 : (flags & 8) != 0 ? 24 : 16;
  fields.channels = littleEndian16(head, 10);
  fields.sampleRate = littleEndian32(head, 12);
  return fields;
}

}  // namespace

Result<AudioProperties, HeaderFault> parseApeHeader(HeaderBytes head) {
  if (head.size() < 16) return HeaderFault::tooShort;
  if (!hasMark(head, 0, "MAC ")) return HeaderFault::badMagic;
  const std::uint32_t version = littleEndian16(head, 4);
  const auto parsed =
      version >= kFirstVersionWithDescriptor ? parseNew(head) : parseOld(head, version);
  if (!parsed) return parsed.error();
  const ApeFields& fields = parsed.value();
  constexpr std::uint32_t kHighestRate = std::numeric_limits<int>::max();
  if (fields.sampleRate == 0 || fields.sampleRate > kHighestRate || fields.channels == 0) {
    return HeaderFault::malformed;
  }
  double samples = fields.finalFrameBlocks;
  if (fields.totalFrames > 0) {
    samples += (static_cast<double>(fields.totalFrames) - 1) * fields.blocksPerFrame;
  }
  AudioProperties properties;
  properties.duration = samples / fields.sampleRate;
  properties.sampleRate = static_cast<int>(fields.sampleRate);
  properties.channels = static_cast<int>(fields.channels);
  properties.bitDepth = static_cast<int>(fields.bitsPerSample);
  return properties;
}

}  // namespace velorin
