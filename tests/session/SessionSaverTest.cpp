#include "session/SessionSaver.h"

#include <gtest/gtest.h>

#include "foundation/Log.h"
#include "foundation/Preferences.h"

namespace velorin {
namespace {

using namespace std::chrono_literals;

class SessionSaverTest : public testing::Test {
 protected:
  /// Lets the time pass in which the saver would write; true when it did.
  bool writesWithin(std::chrono::milliseconds time) {
    const std::size_t before = _asked.size();
    return MainThread::instance().runUntil([&] { return _asked.size() > before; }, time);
  }
  bool comesToHold(std::optional<std::int64_t> trackId) {
    return MainThread::instance().runUntil(
        [&] { return _preferences.getInt("lastTrackId") == trackId; }, 5s);
  }
  static bool equal(SessionParts a, SessionParts b) {
    for (const auto part :
         {SessionPart::position, SessionPart::place, SessionPart::queue, SessionPart::autoplay}) {
      if (a.has(part) != b.has(part)) return false;
    }
    return true;
  }

  const log::Capture _capture;
  Preferences _preferences;
  SessionStore _store{_preferences};
  std::optional<SavedSession> _session = SavedSession{.trackId = 1, .queueIds = {1}};
  bool _isPlaying = false;
  std::vector<SessionParts> _asked;
  SessionSaver _saver{_store,
                      {.session =
                           [this](SessionParts parts) {
                             _asked.push_back(parts);
                             return _session;
                           },
                       .isPlaying = [this] { return _isPlaying; }},
                      {.afterChange = 20ms, .whilePlaying = 30ms}};
};

TEST_F(SessionSaverTest, WritesWhatChangedOnceAndOnlyOnceItMay) {
  _preferences.setInt("lastTrackId", 42);
  _saver.changed(PlayerChange::history);
  EXPECT_FALSE(writesWithin(40ms));
  EXPECT_TRUE(_saver.saveNow());
  EXPECT_EQ(_preferences.getInt("lastTrackId"), 42) << "the stored session has not been read yet";

  _saver.start();
  _saver.changed(PlayerChange::autoplay);
  _saver.changed(PlayerChange::autoplay | PlayerChange::tick | PlayerChange::volume);
  ASSERT_TRUE(writesWithin(5s));
  EXPECT_TRUE(equal(_asked[0], SessionPart::autoplay | SessionPart::place));
  EXPECT_TRUE(comesToHold(1));
  _saver.changed(PlayerChange::tick | PlayerChange::modes);
  EXPECT_FALSE(writesWithin(60ms)) << "idle";

  // Nothing is left of a session without a track; the next one is whole.
  _session.reset();
  _saver.changed(PlayerChange::track);
  ASSERT_TRUE(comesToHold(std::nullopt));
  _session = SavedSession{.trackId = 2, .queueIds = {2}};
  _saver.changed(PlayerChange::state);
  ASSERT_TRUE(comesToHold(2));
  EXPECT_TRUE(equal(_asked.back(), SessionParts::all()));
  EXPECT_TRUE(_saver.saveNow());
  EXPECT_TRUE(_capture.contains("💾 Save: trackId=2"));
}

TEST_F(SessionSaverTest, WhilePlayingThePositionIsWritten) {
  _saver.start();
  _isPlaying = true;
  _saver.changed(PlayerChange::state);
  for (int i = 0; i < 3; ++i) {
    ASSERT_TRUE(writesWithin(5s));
    EXPECT_TRUE(equal(_asked.back(), SessionPart::position));
  }
  _isPlaying = false;
  _saver.changed(PlayerChange::state);
  ASSERT_TRUE(writesWithin(5s)) << "the pause itself";
  EXPECT_FALSE(writesWithin(80ms));
}

TEST_F(SessionSaverTest, ASessionThatCouldNotBeReadStaysUntilSomethingPlays) {
  _preferences.setInt("lastTrackId", 42);
  _saver.start(/*keepsStored=*/true);
  _saver.changed(PlayerChange::state | PlayerChange::history);
  EXPECT_FALSE(writesWithin(40ms));
  EXPECT_TRUE(_saver.saveNow());
  EXPECT_TRUE(comesToHold(42));
  _saver.changed(PlayerChange::timeline);
  EXPECT_TRUE(comesToHold(1));
}

}  // namespace
}  // namespace velorin
