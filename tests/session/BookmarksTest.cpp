#include "session/Bookmarks.h"

#include <gtest/gtest.h>

#include <limits>

#include "foundation/Log.h"
#include "foundation/MainThread.h"
#include "library/DatabaseManager.h"
#include "library/TestLibrary.h"

namespace velorin {
namespace {

using namespace std::chrono_literals;

class BookmarksTest : public testing::Test {
 protected:
  BookmarksTest() {
    for (const char* title : {"a", "b"}) _library.add({.title = title});
    _bookmarks.reload(track(1));
  }
  TrackInfo track(std::int64_t id) { return _manager->tracks().fetchTracks({id}).at(0); }
  bool comesTo(std::size_t count, std::chrono::milliseconds time = 10s) {
    return MainThread::instance().runUntil([&] { return _bookmarks.list().size() == count; }, time);
  }
  std::vector<double> positions() const {
    std::vector<double> all;
    for (const auto& each : _bookmarks.list()) all.push_back(each.position);
    return all;
  }

  const log::Capture _capture;
  test::TestLibrary _library;
  std::shared_ptr<DatabaseManager> _manager =
      std::make_shared<DatabaseManager>(_library.database().dbQueue());
  int _beeps = 0;
  std::vector<std::int64_t> _stored;
  Bookmarks _bookmarks{{.database = _manager,
                        .beep = [this] { ++_beeps; },
                        .stored = [this](std::int64_t id, const auto&) { _stored.push_back(id); }}};
};

TEST_F(BookmarksTest, TenAreKeptInOrderInEightColours) {
  for (const double position : {90., 10., -5., 20., 30., 40., 50., 60., 70., 20., 80.}) {
    _bookmarks.add(position);
  }
  _bookmarks.add(std::numeric_limits<double>::quiet_NaN());
  EXPECT_EQ(_beeps, 1);
  ASSERT_TRUE(comesTo(10));
  EXPECT_EQ(positions(), (std::vector<double>{0, 10, 20, 20, 30, 40, 50, 60, 70, 90}));
  const auto list = _bookmarks.list();
  EXPECT_EQ(list[3].color, "#33A1FF") << "the tenth; behind its equal";
  EXPECT_EQ(list[8].color, "#FF5733") << "the ninth takes the first colour";
  EXPECT_EQ(track(1).track.bookmarks, list);
  EXPECT_EQ(_stored, std::vector<std::int64_t>(10, 1));

  // The next colour follows from the count.
  _bookmarks.remove(list[0].id);
  _bookmarks.remove(list[0].id);
  _bookmarks.update(list[1].id, "Bridge", std::nullopt);
  _bookmarks.update(list[1].id, std::nullopt, "#000000");
  _bookmarks.update("none", "x", std::nullopt);
  _bookmarks.add(95);
  ASSERT_TRUE(MainThread::instance().runUntil([&] { return positions().back() == 95; }, 10s));
  EXPECT_EQ(_bookmarks.list().back().color, "#33A1FF");
  EXPECT_EQ(_bookmarks.list()[0].label, "Bridge");
  EXPECT_EQ(_bookmarks.list()[0].color, "#000000");
  _bookmarks.update(list[1].id, "", std::nullopt);
  ASSERT_TRUE(MainThread::instance().runUntil([&] { return !_bookmarks.list()[0].label; }, 10s));
}

TEST_F(BookmarksTest, AnotherTrackHasItsOwn) {
  _bookmarks.add(1);
  _bookmarks.reload(track(2));
  EXPECT_TRUE(_bookmarks.list().empty());
  _bookmarks.add(2);
  ASSERT_TRUE(comesTo(1));
  EXPECT_EQ(positions(), std::vector<double>{2});
  EXPECT_EQ(_stored, (std::vector<std::int64_t>{1, 2}));
  TrackInfo external = track(1);
  external.track.id.reset();
  _bookmarks.reload(external);
  _bookmarks.remove(_bookmarks.list().at(0).id);
  _bookmarks.reload(std::nullopt);
  _bookmarks.add(3);
  EXPECT_EQ(_beeps, 0);
  _bookmarks.reload(track(1));
  EXPECT_EQ(positions(), std::vector<double>{1});
}

TEST_F(BookmarksTest, AFailureLeavesTheList) {
  _bookmarks.add(1);
  ASSERT_TRUE(comesTo(1));
  _library.run(
      "CREATE TRIGGER full BEFORE UPDATE OF bookmarks ON tracks "
      "BEGIN SELECT RAISE(ABORT, 'disk full'); END");
  _bookmarks.add(2);
  EXPECT_TRUE(_capture.waitFor("❌ Bookmarks cannot be stored: ", 10s));
  _library.run("DROP TRIGGER full");
  EXPECT_FALSE(comesTo(2, 20ms));
  _bookmarks.add(3);
  EXPECT_TRUE(MainThread::instance().runUntil([&] { return positions().back() == 3; }, 10s));
}

}  // namespace
}  // namespace velorin
