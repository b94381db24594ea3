#include "session/ListenCounter.h"

#include <gtest/gtest.h>

namespace velorin {
namespace {

class ListenCounterTest : public testing::Test {
 protected:
  void pass(double seconds) {
    _now += std::chrono::duration_cast<ListenCounter::TimePoint::duration>(
        std::chrono::duration<double>(seconds));
  }

 private:
  ListenCounter::TimePoint _now{std::chrono::seconds(1'000'000)};

 protected:
  ListenCounter counter{[this] { return _now; }};
};

TEST_F(ListenCounterTest, SkipsEndBeforeThreeTenths) {
  const struct {
    double duration, heard;
    bool skipped;
  } cases[] = {{100, 29, true}, {100, 30, false}, {0, 0, false}, {200, 500, false}};
  for (const auto& each : cases) {
    counter.begin();
    counter.heard();
    pass(each.heard);
    counter.halt();
    pass(1000);  // silence is not listened to
    const auto listen = counter.take(each.duration);
    ASSERT_TRUE(listen);
    EXPECT_EQ(listen->skipped, each.skipped) << each.heard << " of " << each.duration;
    EXPECT_DOUBLE_EQ(listen->seconds, each.heard);
    EXPECT_FALSE(counter.take(each.duration)) << "counted twice";
  }
  counter.begin();
  EXPECT_FALSE(counter.take(100)) << "never heard";
}

TEST_F(ListenCounterTest, ScrobblesOnceAtTheHalfOrAfterFourMinutes) {
  const struct {
    double duration, before, at;
  } cases[] = {{600, 239, 240}, {300, 149, 150}, {30, 14, 15}};
  for (const auto& each : cases) {
    counter.begin();
    const auto began = counter.startedAt();
    counter.heard();
    pass(each.before);
    EXPECT_FALSE(counter.takeScrobble(each.duration));
    pass(each.at - each.before);
    EXPECT_EQ(counter.takeScrobble(each.duration), began) << each.duration;
    pass(1000);
    EXPECT_FALSE(counter.takeScrobble(each.duration));
  }
  counter.begin();
  pass(1000);
  EXPECT_FALSE(counter.takeScrobble(29));
}

}  // namespace
}  // namespace velorin
