#include "engine/PlaybackFacts.h"

#include <fmt/format.h>

#include <cmath>

namespace velorin {
namespace {

/// Bits of a sample that 32-bit float carries exactly.
int exactBits(const StreamFormat& source) {
  return source.isFloat() ? 32 : 24;
}

}  // namespace

PathVerdict judge(const PlaybackFacts& facts) {
  const auto no = [](std::string reason) { return PathVerdict{false, std::move(reason)}; };
  const auto bits = static_cast<std::uint32_t>(facts.sourceBitDepth);

  if (facts.output.backend.empty()) return no("nothing is playing");
  if (facts.decoder && !facts.decoder->isLossless) return no("lossy source");
  if (facts.dsdRate > 0) return no("DSD is converted to PCM");
  if (facts.resampledTo > 0) return no(fmt::format("resampled to {:.0f} Hz", facts.resampledTo));
  if (!facts.isIntegerOutput && facts.sourceBitDepth > exactBits(facts.fileFormat)) {
    return no(fmt::format("{} bits do not fit 32-bit float", facts.sourceBitDepth));
  }
  if (facts.effectsActive) return no("effects are on");
  if (facts.softwareVolumeActive) return no("volume below 100 %");
  if (!facts.deviceRateVerified) {
    return no(fmt::format("device runs at {:.0f} Hz", facts.output.deviceRate));
  }
  if (!facts.output.volumeUnity) return no("the system's volume is not at 100 %");
  if (facts.output.converted) return no("converted on the way to the device");
  if (facts.output.deviceBits == 0) return no("the device's format is not known");
  if (facts.output.deviceBits < bits) {
    return no(fmt::format("only {} bits reach the device", facts.output.deviceBits));
  }
  if (facts.output.mixed) return no("other programs are mixed in");
  return {true, {}};
}

}  // namespace velorin
