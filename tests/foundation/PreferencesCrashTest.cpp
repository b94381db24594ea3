// Kills a process in the middle of its writes, many times, and looks at what it left behind.

#include <gtest/gtest.h>

#include <random>

#include "foundation/Log.h"
#include "foundation/PreferencesState.h"
#include "support/ReportingChild.h"
#include "support/TemporaryFolder.h"

namespace velorin {
namespace {

TEST(PreferencesCrash, AKillLeavesTheOldFileOrTheNew) {
  constexpr int kRounds = 200;
  const test::TemporaryFolder folder;
  const auto file = folder / "preferences.plist";
  const log::Capture capture;
  std::mt19937 random(20240501);
  std::int64_t first = 1;
  int killedInsideAWrite = 0;
  for (int round = 0; round < kRounds; ++round) {
    test::ReportingChild writer({PREFERENCES_WRITER, file, std::to_string(first)});
    writer.waitFor('+', 1 + static_cast<int>(random() % 3));
    EXPECT_TRUE(writer.kill(std::chrono::microseconds(random() % 4000)))
        << "the writer gave up by itself";
    const auto reported = first + static_cast<std::int64_t>(writer.reports().size()) - 1;

    const Preferences store(file);
    const auto state = store.getMap("state");
    ASSERT_TRUE(state) << "round " << round;
    const auto number = std::get<std::int64_t>(state->at("number").value);
    // Old or new: the last state that was reported, or the one that was being written.
    EXPECT_GE(number, reported) << "round " << round;
    EXPECT_LE(number, reported + 1) << "round " << round;
    EXPECT_EQ(*state, test::stateOf(number)) << "round " << round;
    killedInsideAWrite += std::filesystem::exists(folder / ".preferences.plist.new");
    first = number + 1;
  }
  EXPECT_TRUE(capture.lines().empty()) << capture.lines().front();
  // Else the kills fell elsewhere and the rounds above prove nothing.
  EXPECT_GT(killedInsideAWrite, 0);
  RecordProperty("killedInsideAWrite", killedInsideAWrite);
}

}  // namespace
}  // namespace velorin
