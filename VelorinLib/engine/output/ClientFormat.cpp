#include "engine/output/ClientFormat.h"

namespace velorin {

StreamFormat fileFormatOf(double sampleRate, std::uint32_t channels, std::uint32_t bitsPerSample,
                          bool isFloat) {
  const std::uint32_t bytes = channels * (bitsPerSample / 8);
  return {.sampleRate = sampleRate,
          .formatFlags = (isFloat ? kPCMFloat : kPCMSignedInteger) | std::uint32_t{kPCMPacked},
          .bytesPerPacket = bytes,
          .framesPerPacket = 1,
          .bytesPerFrame = bytes,
          .channelsPerFrame = channels,
          .bitsPerChannel = bitsPerSample};
}

StreamFormat clientFormatFor(bool integerWanted, int sourceBitDepth, double sampleRate,
                             std::uint32_t channels) {
  StreamFormat format = StreamFormat::planarFloat(sampleRate, channels);
  if (!integerWanted || sourceBitDepth < 1) return format;

  const std::uint32_t bytes = sourceBitDepth <= 16 ? 2 : 4;
  format.formatFlags = std::uint32_t{kPCMSignedInteger} | kPCMNonInterleaved;
  if (sourceBitDepth != 24) format.formatFlags |= kPCMPacked;
  format.bytesPerPacket = format.bytesPerFrame = bytes;
  format.bitsPerChannel = bytes * 8;
  return format;
}

}  // namespace velorin
