#include "platform/audio/InputFormat.h"

#include <fmt/format.h>

#include <cerrno>

namespace velorin {
namespace {

AudioStatus refused(const StreamFormat& format, const char* why) {
  return AudioStatus::failure(-EINVAL, fmt::format("{}: {}", format.description(), why));
}

}  // namespace

AudioStatus checkInputFormat(const StreamFormat& format) {
  if (format.formatID != kLinearPCM) return refused(format, "not linear PCM");
  if (!format.isPlanar()) return refused(format, "interleaved");
  if (!(format.sampleRate >= 1'000 && format.sampleRate <= 10'000'000)) {
    return refused(format, "sample rate out of range");
  }
  if (format.channelsPerFrame == 0 || format.channelsPerFrame > kMaxChannels) {
    return refused(format, "channel count out of range");
  }
  if (format.isFloat() == format.isInteger()) return refused(format, "neither float nor integer");
  const bool isWord = format.bytesPerFrame == 4 && format.bitsPerChannel == 32;
  const bool isShort = format.bytesPerFrame == 2 && format.bitsPerChannel == 16;
  if (!isWord && !(isShort && format.isInteger())) return refused(format, "sample size");
  return AudioStatus::success();
}

std::uint32_t significantBits(const StreamFormat& format) noexcept {
  if (format.isFloat()) return 24;
  const bool isPacked = (format.formatFlags & kPCMPacked) != 0;
  return format.bitsPerChannel == 32 && !isPacked ? 24 : format.bitsPerChannel;
}

const char* planarFormatName(const StreamFormat& format) noexcept {
  if (format.isFloat()) return "F32P";
  return format.bitsPerChannel == 16 ? "S16P" : "S32P";
}

}  // namespace velorin
