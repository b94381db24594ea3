// The hour that the listener's clock showed.
#pragma once

#include <chrono>
#include <optional>
#include <string_view>

namespace velorin {

/// Tells the hours of many moments, quickest when they come nearly in order: the offset of the
/// local time zone is looked up once for each hour of UTC. The zone is the one that the C library
/// uses (TZ, /etc/localtime), with its rules for that day. One thread at a time.
class LocalHours {
 public:
  /// 0 to 23, for a moment in the library's text form (foundation/Dates.h). Empty for any other
  /// text.
  std::optional<int> of(std::string_view moment);

 private:
  std::optional<std::chrono::sys_seconds> _start;  // of the hour of UTC that was looked up last
  std::optional<std::chrono::seconds> _offset;     // empty when it changes within that hour
};

/// Whether an hour lies in the window that opens at `from` and closes before `to`, across midnight
/// when `from` is above `to`. Two equal hours stand for the whole day.
constexpr bool isInHours(int hour, int from, int to) noexcept {
  return from < to ? hour >= from && hour < to : hour >= from || hour < to;
}

}  // namespace velorin
