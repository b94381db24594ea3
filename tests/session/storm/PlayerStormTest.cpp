// Storms over the player. VELORIN_STORM_SECONDS makes them last; VELORIN_STORM_SEED repeats the one
// storm that a failure named.
#include <cstdlib>

#include "session/storm/Storm.h"

namespace velorin {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kBurstsOfAStorm = 40;
constexpr int kBurstsOfAShortStorm = 12;

std::optional<int> numberFrom(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? std::optional(std::atoi(value)) : std::nullopt;
}

TEST(PlayerStorm, NothingSticksAndHistoryIsWhatWasHeard) {
  const auto only = numberFrom("VELORIN_STORM_SEED");
  const auto until =
      Clock::now() + std::chrono::seconds(numberFrom("VELORIN_STORM_SECONDS").value_or(0));
  const auto first = static_cast<std::uint32_t>(only.value_or(20260101));
  const bool isShort = !only && until <= Clock::now();
  constexpr std::uint32_t kLeastStorms = 4;
  int operations = 0;
  test::Storm::Seen seen;
  std::uint32_t storms = 0;
  do {
    const std::uint32_t seed = first + storms++;
    test::Storm storm(seed, {.crossfades = seed % 2 == 0,
                             .clock = seed % 4 == 3 ? VirtualClock::unpaced : VirtualClock::paced});
    for (int i = 0; i < (isShort ? kBurstsOfAShortStorm : kBurstsOfAStorm) && storm.burst(); ++i) {
    }
    storm.judge();
    operations += storm.operations();
    seen.heard += storm.seen().heard;
    seen.counted += storm.seen().counted;
    seen.joins += storm.seen().joins;
    seen.certainJoins += storm.seen().certainJoins;
  } while (!HasFailure() && !only && (storms < kLeastStorms || Clock::now() < until));
  RecordProperty("operations", operations);
  std::printf(
      "%u storms, %d operations: %zu tracks heard, %zu counted, %zu joins of which %zu certain\n",
      storms, operations, seen.heard, seen.counted, seen.joins, seen.certainJoins);
}

}  // namespace
}  // namespace velorin
