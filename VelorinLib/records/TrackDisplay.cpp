#include "records/TrackDisplay.h"

#include <fmt/format.h>

#include <cstdint>

namespace velorin {
namespace {

/// Empty for a track that is not DSD, and for a rate that has no name.
std::string_view dsdName(const Track& track) noexcept {
  if (!isDSD(track)) return {};
  switch (track.sampleRate.value_or(0)) {
    case 2'822'400:
      return "DSD64";
    case 5'644'800:
      return "DSD128";
    case 11'289'600:
      return "DSD256";
    case 22'579'200:
      return "DSD512";
    default:
      return {};
  }
}

std::string kiloHertz(int rate) {
  return fmt::format("{:.1f} kHz", rate / 1000.0);
}

}  // namespace

bool isDSD(const Track& track) noexcept {
  return track.bitDepth == 1 && track.format == "DSD";
}

std::string sampleRateText(const Track& track) {
  if (!track.sampleRate) return kUnknownText;
  if (const auto name = dsdName(track); !name.empty()) return std::string(name);
  return *track.sampleRate < 1000 ? fmt::format("{} Hz", *track.sampleRate)
                                  : kiloHertz(*track.sampleRate);
}

std::string bitDepthText(const Track& track) {
  if (!track.bitDepth) return kUnknownText;
  if (const auto name = dsdName(track); !name.empty()) return std::string(name);
  return fmt::format("{}-bit", *track.bitDepth);
}

std::string qualityLine(const Track& track) {
  if (const auto name = dsdName(track); !name.empty()) return std::string(name);
  const bool depthIsKnown = track.bitDepth.value_or(0) != 0;
  if (!depthIsKnown && track.bitRate.value_or(0) > 0) {
    return fmt::format("{} kbps", *track.bitRate / 1000);
  }
  std::string line;
  if (depthIsKnown) line = fmt::format("{}bit", *track.bitDepth);
  if (track.sampleRate) {
    if (!line.empty()) line += " / ";
    line += kiloHertz(*track.sampleRate);
  }
  return line.empty() ? kUnknownText : line;
}

bool isHighResolution(const Track& track) noexcept {
  return isDSD(track) || track.sampleRate.value_or(0) >= 48'001 || track.bitDepth.value_or(0) > 16;
}

std::string durationText(double seconds) {
  // What a file claims may be anything; a number that is none counts as nothing.
  constexpr double kLongest = 1e12;
  const bool sensible = seconds > 0 && seconds < kLongest;
  const auto whole = sensible ? static_cast<std::int64_t>(seconds) : 0;
  return fmt::format("{}:{:02}", whole / 60, whole % 60);
}

std::string_view genreShown(const TrackInfo& info) noexcept {
  if (info.track.genre) return *info.track.genre;
  if (info.album.genre) return *info.album.genre;
  return {};
}

}  // namespace velorin
