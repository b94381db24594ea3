#include "engine/SourceFacts.h"

#include <fmt/format.h>

#include <atomic>
#include <cmath>
#include <filesystem>

#include "engine/output/ClientFormat.h"
#include "foundation/Text.h"

namespace velorin {
namespace {

std::uint64_t nextSerial() noexcept {
  static std::atomic<std::uint64_t> last{0};
  return ++last;
}

void setRange(SourceFacts& facts) {
  const double rate = facts.fileFormat.sampleRate;
  const double start = facts.track.cueStartTime.value_or(0);
  const double end = facts.track.cueEndTime.value_or(0);
  facts.bounds.start = start > 0 ? framesAt(start, rate) : 0;
  facts.bounds.end = end > 0 ? framesAt(end, rate) : 0;

  const double fileSeconds = rate > 0 ? static_cast<double>(facts.totalFrames) / rate : 0;
  const double until = end > 0 ? end : fileSeconds;
  facts.duration = until > 0 ? std::max(0.0, until - std::max(0.0, start)) : 0;
  facts.serial = nextSerial();
}

}  // namespace

std::int64_t framesAt(double seconds, double rate) noexcept {
  return std::llround(seconds * rate);
}

SourceFacts describeSource(const Track& track, const FileDecoder& decoder,
                           const std::optional<DSDRatePlan>& dsd) {
  SourceFacts facts;
  facts.track = track;
  facts.fileFormat = fileFormatOf(decoder.sampleRate(), decoder.channels(), decoder.bitsPerSample(),
                                  decoder.isFloatSource());
  facts.decoderInfo = decoder.info();
  facts.sourceBitDepth = static_cast<int>(decoder.bitsPerSample());
  if (dsd) {
    facts.dsd = dsd;
    facts.fileFormat = StreamFormat::planarFloat(dsd->chosen, decoder.channels());
    facts.sourceBitDepth = 1;
  }
  facts.totalFrames = decoder.totalFrames();
  setRange(facts);
  return facts;
}

SourceFacts sameFile(const SourceFacts& facts, const Track& track) {
  SourceFacts other = facts;
  other.track = track;
  other.predecessor = 0;
  setRange(other);
  return other;
}

bool isSameTrack(const Track& a, const Track& b) noexcept {
  return a.filePath == b.filePath && a.cueStartTime == b.cueStartTime;
}

std::string titleOf(const Track& track) {
  const std::string_view title = text::trimWhitespaceAndNewlines(track.title);
  if (!title.empty()) return std::string(track.title);
  return std::filesystem::path(track.filePath).filename().string();
}

std::string cueRangeText(const Track& track) {
  if (!track.cueStartTime) return {};
  return fmt::format(" (CUE {:.1f}→{:.1f}s)", *track.cueStartTime, track.cueEndTime.value_or(0));
}

}  // namespace velorin
