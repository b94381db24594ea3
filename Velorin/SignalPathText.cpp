#include "SignalPathText.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "Terminal.h"
#include "foundation/Text.h"

namespace velorin {
namespace {

/// A title of more columns than this may be shortened in favour of the path.
constexpr int kTitleColumns = 24;

std::string deviceText(const PlaybackFacts& facts) {
  std::string text = text::escapeForTerminal(facts.deviceName);
  if (facts.output.exclusive) text += " (exclusive)";
  return text;
}

bool isLossy(const PlaybackFacts& facts) {
  return facts.decoder && !facts.decoder->isLossless;
}

/// "44.1 kHz 16-bit", "96 kHz 32-bit float", "48 kHz lossy", "DSD64".
std::string soundText(const PlaybackFacts& facts) {
  if (facts.dsdRate > 0) return dsdText(facts.dsdRate);
  const std::string rate = rateText(facts.fileFormat.sampleRate);
  if (isLossy(facts)) return rate + " lossy";
  if (facts.sourceBitDepth <= 0) return rate;
  return fmt::format("{} {}-bit{}", rate, facts.sourceBitDepth,
                     facts.fileFormat.isFloat() ? " float" : "");
}

/// The same in few characters: "44.1 kHz/16", "DSD64".
std::string shortSoundText(const PlaybackFacts& facts) {
  if (facts.dsdRate > 0) return dsdText(facts.dsdRate);
  const std::string rate = rateText(facts.fileFormat.sampleRate);
  if (isLossy(facts) || facts.sourceBitDepth <= 0) return rate;
  return fmt::format("{}/{}", rate, facts.sourceBitDepth);
}

/// "FLAC 44.1 kHz 16-bit", with the channels where there are not two: "… 6 ch".
std::string formatText(const PlaybackFacts& facts) {
  const std::string name =
      facts.decoder ? facts.decoder->formatTag.value_or(facts.decoder->name) : std::string("file");
  std::string text = text::escapeForTerminal(name) + " " + soundText(facts);
  const std::uint32_t channels = facts.fileFormat.channelsPerFrame;
  if (channels == 1) text += " mono";
  if (channels > 2) text += fmt::format(" {} ch", channels);
  if (facts.isInMemory) text += " from RAM";
  return text;
}

std::string processingText(const PlaybackFacts& facts) {
  std::string text;
  if (facts.dsdRate > 0) text += rateText(facts.fileFormat.sampleRate) + " → ";
  if (facts.resampledTo > 0) text += rateText(facts.resampledTo) + " → ";
  return text + (facts.isIntegerOutput ? "integer" : "float");
}

}  // namespace

std::string rateText(double hertz) {
  // At most three decimals, without zeros at the end.
  return fmt::format("{:g} kHz", std::round(hertz) / 1000);
}

std::string dsdText(double hertz) {
  for (const int multiple : {64, 128, 256, 512}) {
    if (hertz == multiple * 44100.0) return fmt::format("DSD{}", multiple);
  }
  return "DSD";
}

std::string timeText(double seconds) {
  if (!(seconds > 0) || seconds > 1e9) seconds = 0;
  const auto whole = static_cast<std::int64_t>(seconds);
  if (whole < 3600) return fmt::format("{}:{:02}", whole / 60, whole % 60);
  return fmt::format("{}:{:02}:{:02}", whole / 3600, whole / 60 % 60, whole % 60);
}

std::vector<std::string> pathTexts(const PlaybackFacts& facts) {
  const PathVerdict verdict = judge(facts);
  const std::string word = verdict.bitPerfect ? "bit-perfect" : "not bit-perfect";
  const std::string reason = verdict.reason.empty() ? "" : ": " + verdict.reason;
  const std::string format = formatText(facts);
  const std::string source = shortSoundText(facts);
  const std::string road =
      fmt::format(" → {} → {} · {}", processingText(facts), deviceText(facts), word);
  return {format + road + reason, format + road, source + road, source + " · " + word, word};
}

std::string composeStatus(const std::string& head, const std::string& title,
                          const std::vector<std::string>& paths, int columns) {
  const int headColumns = terminal::columnsTaken(head);
  const int titleColumns = terminal::columnsTaken(title);
  const int wanted = std::min(titleColumns, kTitleColumns);
  for (const std::string& path : paths) {
    const int left = columns - headColumns - 4 - terminal::columnsTaken(path);
    if (left < wanted) continue;
    return head + "  " + terminal::fitted(title, left) + "  " + path;
  }
  const int left = columns - headColumns - 2;
  return left > 0 ? head + "  " + terminal::fitted(title, left) : terminal::fitted(head, columns);
}

}  // namespace velorin
