#include "records/PlaybackTypes.h"

#include <gtest/gtest.h>

#include "records/Events.h"

namespace velorin {
namespace {

template <class E>
void expectNames(const std::vector<std::string_view>& names) {
  for (std::size_t raw = 0; raw < names.size(); ++raw) {
    const auto value = fromRaw<E>(static_cast<std::int64_t>(raw));
    ASSERT_TRUE(value) << names[raw];
    EXPECT_EQ(nameOf(*value), names[raw]);
    EXPECT_EQ(fromName<E>(names[raw]), value);
  }
  const auto count = static_cast<std::int64_t>(names.size());
  for (const std::int64_t raw : {count, std::int64_t{-1}, std::int64_t{256}, INT64_MAX}) {
    EXPECT_EQ(fromRaw<E>(raw), std::nullopt) << raw;
  }
  for (const char* name : {"", "Playing", "native "}) {
    EXPECT_EQ(fromName<E>(name), std::nullopt) << name;
  }
}

// Raw values stand in preference files and backups: they never change.
TEST(PlaybackTypes, NamesAndRawValuesAreStable) {
  expectNames<PlaybackState>({"stopped", "playing", "paused"});
  expectNames<VolumeMode>({"software", "hardware", "fixed"});
  expectNames<SampleRateStrategy>({"native", "powerOf2", "max", "fixed"});
}

}  // namespace
}  // namespace velorin
