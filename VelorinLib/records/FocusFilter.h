// The focus filter: a transient choice in the browsing bar that narrows every listing.
#pragma once

#include <map>
#include <set>
#include <string>
#include <string_view>

namespace velorin {

/// In this fixed order.
enum class FocusCategory { genre, year, format, sampleRate, bitDepth };

/// The name of the case.
std::string_view rawValue(FocusCategory category) noexcept;

/// Some values of a category, alternatives to each other. A year or a rate is held as its text.
struct FocusRule {
  std::set<std::string> values;
  bool inverted = false;  ///< everything but these

  bool operator==(const FocusRule&) const = default;
};

/// All categories that hold a value must be met.
struct FocusFilter {
  std::map<FocusCategory, FocusRule> rules;

  bool operator==(const FocusFilter&) const = default;
};

/// "24-bit", "DSD (1-bit)", "44 kHz", "800 Hz"; other categories show the value.
std::string focusDisplayValue(std::string_view value, FocusCategory category);

/// The short form: "24-bit", "DSD", "44kHz", "800Hz".
std::string focusChipValue(std::string_view value, FocusCategory category);

}  // namespace velorin
