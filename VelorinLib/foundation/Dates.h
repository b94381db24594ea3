// Moments as text, in the one form the library database holds and compares.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace velorin::dates {

using TimePoint = std::chrono::system_clock::time_point;

/// "YYYY-MM-DD HH:MM:SS.SSS" in UTC; what lies below a millisecond is cut off. Texts of this form
/// sort as their moments do.
std::string toText(TimePoint moment);

/// The moment of a text of exactly that form. Empty for any other text, for a day or time that
/// does not exist, and for years the clock cannot hold (outside 1678 to 2261).
std::optional<TimePoint> fromText(std::string_view text) noexcept;

}  // namespace velorin::dates
