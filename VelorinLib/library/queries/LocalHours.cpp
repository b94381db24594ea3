#include "library/queries/LocalHours.h"

#include <ctime>

#include "foundation/Dates.h"

namespace velorin {
namespace {

namespace chrono = std::chrono;

/// What the local clock is ahead of UTC at that moment.
chrono::seconds offsetAt(chrono::sys_seconds moment) {
  const std::time_t time = moment.time_since_epoch().count();
  std::tm local{};
  if (localtime_r(&time, &local) == nullptr) return chrono::seconds(0);
  return chrono::seconds(local.tm_gmtoff);
}

}  // namespace

std::optional<int> LocalHours::of(std::string_view text) {
  const auto moment = dates::fromText(text);
  if (!moment) return std::nullopt;
  const auto exact = chrono::floor<chrono::seconds>(*moment);
  if (const chrono::sys_seconds start = chrono::floor<chrono::hours>(exact); start != _start) {
    _start = start;
    _offset = offsetAt(start);
    if (_offset != offsetAt(start + chrono::seconds(3599))) _offset.reset();
  }
  const auto local = exact + (_offset ? *_offset : offsetAt(exact));
  const auto ofDay = local - chrono::floor<chrono::days>(local);
  return static_cast<int>(chrono::floor<chrono::hours>(ofDay).count());
}

}  // namespace velorin
