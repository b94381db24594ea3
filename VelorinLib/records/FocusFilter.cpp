#include "records/FocusFilter.h"

#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace velorin {
namespace {

// In the order of the enumeration.
constexpr std::array<std::string_view, 5> kCategories{"genre", "year", "format", "sampleRate",
                                                      "bitDepth"};

std::optional<std::int64_t> integer(std::string_view text) {
  std::int64_t value = 0;
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || stop != text.data() + text.size()) return std::nullopt;
  return value;
}

/// A rate with `gap` between its number and its unit.
std::string rateText(std::string_view value, const char* gap) {
  const auto rate = integer(value);
  if (!rate) return std::string(value);
  return *rate >= 1000 ? std::to_string(*rate / 1000) + gap + "kHz"
                       : std::to_string(*rate) + gap + "Hz";
}

std::string label(std::string_view value, FocusCategory category, const char* oneBit,
                  const char* gap) {
  switch (category) {
    case FocusCategory::bitDepth:
      return value == "1" ? oneBit : std::string(value) + "-bit";
    case FocusCategory::sampleRate:
      return rateText(value, gap);
    case FocusCategory::genre:
    case FocusCategory::year:
    case FocusCategory::format:
      break;
  }
  return std::string(value);
}

}  // namespace

std::string_view rawValue(FocusCategory category) noexcept {
  const auto at = static_cast<std::size_t>(category);
  return at < kCategories.size() ? kCategories[at] : std::string_view{};
}

std::string focusDisplayValue(std::string_view value, FocusCategory category) {
  return label(value, category, "DSD (1-bit)", " ");
}

std::string focusChipValue(std::string_view value, FocusCategory category) {
  return label(value, category, "DSD", "");
}

}  // namespace velorin
