#include "foundation/Dates.h"

#include <fmt/format.h>

namespace velorin::dates {

namespace {

namespace chrono = std::chrono;

constexpr std::string_view kForm = "0000-00-00 00:00:00.000";

int number(std::string_view text, std::size_t position, std::size_t digits) noexcept {
  int value = 0;
  for (const char c : text.substr(position, digits)) value = value * 10 + (c - '0');
  return value;
}

bool hasForm(std::string_view text) noexcept {
  if (text.size() != kForm.size()) return false;
  for (std::size_t i = 0; i < kForm.size(); ++i) {
    const bool isDigit = text[i] >= '0' && text[i] <= '9';
    if (kForm[i] == '0' ? !isDigit : text[i] != kForm[i]) return false;
  }
  return true;
}

}  // namespace

std::string toText(TimePoint moment) {
  const auto milliseconds = chrono::floor<chrono::milliseconds>(moment);
  const auto day = chrono::floor<chrono::days>(milliseconds);
  const chrono::year_month_day date(day);
  const chrono::hh_mm_ss time(milliseconds - day);
  return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02}.{:03}", static_cast<int>(date.year()),
                     static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                     time.hours().count(), time.minutes().count(), time.seconds().count(),
                     time.subseconds().count());
}

std::optional<TimePoint> fromText(std::string_view text) noexcept {
  if (!hasForm(text)) return std::nullopt;
  const chrono::year_month_day date{chrono::year(number(text, 0, 4)),
                                    chrono::month(static_cast<unsigned>(number(text, 5, 2))),
                                    chrono::day(static_cast<unsigned>(number(text, 8, 2)))};
  const int hours = number(text, 11, 2);
  const int minutes = number(text, 14, 2);
  const int seconds = number(text, 17, 2);
  if (!date.ok() || hours > 23 || minutes > 59 || seconds > 59) return std::nullopt;
  // The clock counts nanoseconds in 64 bits: 292 years to each side of 1970.
  if (date.year() < chrono::year(1678) || date.year() > chrono::year(2261)) return std::nullopt;
  return chrono::sys_days(date) + chrono::hours(hours) + chrono::minutes(minutes) +
         chrono::seconds(seconds) + chrono::milliseconds(number(text, 20, 3));
}

}  // namespace velorin::dates
