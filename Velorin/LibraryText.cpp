#include "LibraryText.h"

#include <fmt/format.h>
#include <unistd.h>

#include <array>

#include "Terminal.h"
#include "foundation/Text.h"
#include "library/LibraryFile.h"
#include "records/TrackDisplay.h"

namespace velorin {
namespace {

[[noreturn]] void throwNoLibrary(const std::filesystem::path& file) {
  throw VelorinDatabaseError("there is no library yet at " + text::pathForDisplay(file) +
                             ": no folder has been added");
}

}  // namespace

std::shared_ptr<ConnectionQueue> openDefaultLibrary() {
  const auto file = defaultLibraryFile();
  try {
    return openLibraryForReading(file);
  } catch (const NoLibraryError&) {
    throwNoLibrary(file);
  } catch (const VelorinDatabaseError& error) {
    throw VelorinDatabaseError("the library " + text::pathForDisplay(file) +
                               " cannot be read: " + error.message);
  }
}

std::shared_ptr<ConnectionQueue> openDefaultLibraryForWriting() {
  const auto file = defaultLibraryFile();
  std::error_code unreachable;
  if (!std::filesystem::exists(file, unreachable)) throwNoLibrary(file);
  return openLibraryFile(file);
}

int outputColumns() {
  constexpr int kUnlimited = 1 << 20;
  // The last column stays free: a character there makes some terminals begin a new line.
  return ::isatty(STDOUT_FILENO) ? terminal::columnsOf(STDOUT_FILENO) - 1 : kUnlimited;
}

std::string groupedText(std::int64_t number) {
  std::string text = std::to_string(number);
  for (auto at = static_cast<std::ptrdiff_t>(text.size()) - 3; at > (number < 0 ? 1 : 0); at -= 3) {
    text.insert(static_cast<std::size_t>(at), ",");
  }
  return text;
}

std::string countText(std::int64_t count, const char* what) {
  return fmt::format("{} {}{}", groupedText(count), what, count == 1 ? "" : "s");
}

std::string longDurationText(double seconds) {
  constexpr double kLongest = 1e15;
  const bool sensible = seconds > 0 && seconds < kLongest;
  const auto minutes = sensible ? static_cast<std::int64_t>(seconds / 60) : 0;
  const std::int64_t hours = minutes / 60;
  const auto both = [](std::int64_t first, const char* one, std::int64_t second,
                       const char* other) {
    return countText(first, one) + (second == 0 ? "" : " " + countText(second, other));
  };
  if (hours >= 24) return both(hours / 24, "day", hours % 24, "hour");
  if (hours > 0) return both(hours, "hour", minutes % 60, "minute");
  return countText(minutes, "minute");
}

std::string sizeText(std::int64_t bytes) {
  static constexpr std::array kUnits = {"kB", "MB", "GB", "TB", "PB", "EB"};
  if (bytes < 1000) return countText(bytes, "byte");
  double value = static_cast<double>(bytes) / 1000;
  std::size_t unit = 0;
  while (value >= 999.95 && unit + 1 < kUnits.size()) {
    value /= 1000;
    ++unit;
  }
  return fmt::format("{:.1f} {}", value, kUnits[unit]);
}

std::string yearText(const TrackInfo& info) {
  const int year =
      info.track.year.value_or(0) != 0 ? *info.track.year : info.album.year.value_or(0);
  return year == 0 ? "" : std::to_string(year);
}

std::string formatAndQuality(const Track& track) {
  const std::string quality = qualityLine(track);
  const std::string format = track.format.value_or("");
  if (quality == kUnknownText) return format;
  return format.empty() || quality.starts_with(format) ? quality : format + " " + quality;
}

}  // namespace velorin
