// Kills a process in the middle of its writes, many times, and looks at what it left behind.

#include <gtest/gtest.h>

#include <random>

#include "foundation/Log.h"
#include "foundation/PreferencesState.h"
#include "support/ReportingChild.h"
#include "support/TemporaryFolder.h"

namespace velorin {
namespace {

bool isLeftInside(const std::filesystem::path& folder) {
  std::error_code none;
  for (const auto& entry : std::filesystem::directory_iterator(folder, none)) {
    if (entry.path().extension() == ".new") return true;
  }
  return false;
}

TEST(PreferencesCrash, AKillLeavesTheOldFileOrTheNew) {
  constexpr int kRounds = 200;
  const test::TemporaryFolder folder;
  const auto file = folder / "preferences.plist";
  const log::Capture capture;
  std::mt19937 random(20240501);
  std::int64_t first = 1;
  int killedInsideAWrite = 0;
  for (int round = 0; round < kRounds; ++round) {
    test::ReportingChild writer({PREFERENCES_WRITER, file, std::to_string(first), "state"});
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
    killedInsideAWrite += std::filesystem::exists(folder / ".preferences.plist.new") ||
                          isLeftInside(folder / "preferences.plist.values");
    first = number + 1;
  }
  EXPECT_TRUE(capture.lines().empty()) << capture.lines().front();
  // Else the kills fell elsewhere and the rounds above prove nothing.
  EXPECT_GT(killedInsideAWrite, 0);
  RecordProperty("killedInsideAWrite", killedInsideAWrite);
}

TEST(PreferencesCrash, ProcessesKeepEachOthersChanges) {
  const test::TemporaryFolder folder;
  const auto file = folder / "preferences.plist";
  const log::Capture capture;
  Preferences mine(file);
  mine.setInt("mine", 0);
  mine.flush();
  std::int64_t heard = 0;
  const auto observation = mine.observe("a", [&] { ++heard; });
  test::ReportingChild a({PREFERENCES_WRITER, file, "1", "a"});
  test::ReportingChild b({PREFERENCES_WRITER, file, "1", "b"});
  for (int i = 1; i <= 30; ++i) {
    a.waitFor('+', i);
    mine.setInt("mine", i);
    EXPECT_TRUE(mine.flush());
    b.waitFor('+', i);
  }
  a.kill();
  b.kill();
  const Preferences store(file);
  EXPECT_EQ(store.getInt("mine"), 30);
  for (const auto& [key, child] : {std::pair{"a", &a}, std::pair{"b", &b}}) {
    const auto state = store.getMap(key);
    ASSERT_TRUE(state) << key;
    const auto number = std::get<std::int64_t>(state->at("number").value);
    EXPECT_GE(number, static_cast<std::int64_t>(child->reports().size())) << key;
    EXPECT_EQ(*state, test::stateOf(number));
  }
  EXPECT_GT(heard, 0) << "this process saw the others' changes at its own writes";
  EXPECT_TRUE(capture.lines().empty()) << capture.lines().front();
}

}  // namespace
}  // namespace velorin
