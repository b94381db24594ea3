// The session from the player to the preferences and back.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <limits>

#include "foundation/AtomicFile.h"
#include "foundation/Log.h"
#include "foundation/MainThread.h"
#include "foundation/Preferences.h"
#include "foundation/PropertyList.h"
#include "library/DatabaseManager.h"
#include "library/TestLibrary.h"
#include "library/cue/ExternalTracks.h"
#include "session/SessionRestorer.h"
#include "session/SessionStore.h"
#include "support/FlacFixture.h"
#include "support/TemporaryFolder.h"

namespace velorin {
namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using Ids = std::vector<std::int64_t>;

PreferenceList listOf(const Ids& ids) {
  PreferenceList list(ids.size());
  for (std::size_t i = 0; i < ids.size(); ++i) list[i].value = ids[i];
  return list;
}

TEST(SessionStore, KeepsWhatTheKeysCanTell) {
  // clang-format off
  const SavedExternal::CuePart part{.start = 20341.0 / 75, .end = 1.0 / 3 + 20341.0 / 75,
                                    .title = "T", .artist = "A", .album = "B", .trackNumber = 4};
  const SavedSession session{.position = 61.25, .duration = 200,
                             .externalTrack = SavedExternal{"/x/\xff.flac", {}}, .queueIndex = 2,
                             .isAutoplay = true, .historyNavOffset = 3, .queueIds = {7, 7, 0, 0},
                             .externals = {{2, {"/x/\xff.flac", {}}}, {3, {"/x/a.flac", part}}},
                             .autoplayIds = {9}};
  // clang-format on
  const test::TemporaryFolder folder;
  const log::Capture capture;
  {
    Preferences preferences(folder / "p.plist");
    EXPECT_TRUE(SessionStore(preferences).save(session));
  }
  Preferences preferences(folder / "p.plist");
  SessionStore store(preferences);
  EXPECT_EQ(store.load(), session);

  const SavedSession plain{.trackId = 7, .queueIndex = -1, .queueIds = {7}};
  EXPECT_TRUE(store.save(plain));
  for (const char* gone : {"lastHistoryNavOffset", "lastExternalPaths", "lastExternalTrackPath",
                           "lastExternalCueParts", "lastExternalTrackCuePart"}) {
    EXPECT_FALSE(preferences.contains(gone)) << gone;
  }
  EXPECT_EQ(preferences.getInt("lastQueueIndex"), 0);
  preferences.setList("lastPlaylistIds", listOf({5, 6}));
  preferences.setInt("lastPlaylistIndex", 1);
  EXPECT_EQ(store.load()->queueIds, Ids{7});
  preferences.remove("lastQueueIds");
  preferences.remove("lastQueueIndex");
  EXPECT_EQ(store.load()->queueIds, (Ids{5, 6}));
  EXPECT_EQ(store.load()->queueIndex, 1);
  EXPECT_TRUE(store.save(std::nullopt));
  EXPECT_TRUE(preferences.contains("lastPlaylistIds"));
  EXPECT_FALSE(store.load());
  store.put(plain, SessionPart::queue);
  EXPECT_EQ(preferences.getList("lastQueueIds"), listOf({7})) << "written again after its removal";
  for (const char* line :
       {"💾 Save: trackId=0 pos=61.2 idx=2 queue=4 autoplay=1 isAutoplay=true histNav=3",
        "📂 Restore: trackId=0 queue=4 idx=2 autoplay=1 wasAutoplay=true histNavOffset=3",
        "💾 Save: nothing to save (currentTrack=nil)", "📂 Restore: no trackId, skipping"}) {
    EXPECT_TRUE(capture.contains(line)) << line;
  }
}

class RestoreTest : public testing::Test {
 protected:
  RestoreTest() {
    for (const char* title : {"1", "2", "3", "4"}) _library.add({.title = title});
    _library.run("DELETE FROM tracks WHERE id = 2");
    _manager = std::make_shared<DatabaseManager>(_library.database().dbQueue());
  }
  RestoreOutcome restore(const SavedSession& saved) {
    return restoreSession(saved, _manager.get(), [] { return false; });
  }
  static std::string titles(const std::vector<TrackInfo>& tracks) {
    std::string all;
    for (const TrackInfo& info : tracks) all += info.track.title;
    return all;
  }

  const log::Capture _capture;
  test::TestLibrary _library;
  std::shared_ptr<DatabaseManager> _manager;
  test::TemporaryFolder _folder;
};

TEST_F(RestoreTest, ComesBackWithWhatIsLeft) {
  const SavedExternal gone{"/none/x.flac", {}};
  struct Case {
    SavedSession saved;
    std::string timeline;
    int index;
    std::string current;
    std::optional<double> restored;
    std::string autoplay;
  };
  // clang-format off
  const Case cases[] = {
      {{.position = 5, .trackId = 3, .queueIndex = 1, .queueIds = {1, 3, 4, 3}}, "1343", 1, "3", 5,
       ""},
      // Items before it are gone; the track itself is; so is all but the track; the index is off.
      {{.position = 5, .trackId = 3, .queueIndex = 2, .queueIds = {1, 2, 3, 4}}, "134", 1, "3", 5,
       ""},
      {{.position = 5, .trackId = 2, .queueIndex = 1, .isAutoplay = true, .historyNavOffset = 0,
        .queueIds = {1, 2, 4}}, "14", 1, "4", {}, ""},
      {{.position = 5, .trackId = 4, .queueIndex = 3, .queueIds = {2}}, "4", 0, "4", 5, ""},
      {{.trackId = 1, .queueIndex = 900, .queueIds = {3, 4}}, "34", 1, "1", 0, ""},
      {{.position = 5, .trackId = 4, .queueIndex = 1, .isAutoplay = true, .queueIds = {1, 3},
        .autoplayIds = {3, 2, 1}}, "13", 1, "4", 5, "31"},
      {{.position = 1e9, .duration = 100, .externalTrack = gone, .queueIndex = 1,
        .queueIds = {1, 3}, .externals = {{1, gone}, {7, gone}}}, "1x", 1, "x", 100, ""},
  };
  // clang-format on
  for (const Case& each : cases) {
    SCOPED_TRACE(each.timeline + " at " + each.current);
    const auto outcome = restore(each.saved);
    ASSERT_TRUE(outcome.session);
    EXPECT_EQ(titles(outcome.session->timeline), each.timeline);
    EXPECT_EQ(outcome.session->timelineIndex, each.index);
    EXPECT_EQ(outcome.session->currentTrack.track.title, each.current);
    EXPECT_EQ(outcome.session->restoredPosition, each.restored);
    EXPECT_EQ(outcome.session->currentPosition, each.restored.value_or(0));
    EXPECT_EQ(outcome.session->isPlayingAutoplay, !each.autoplay.empty());
    EXPECT_EQ(titles(outcome.session->autoplayQueue), each.autoplay);
    EXPECT_EQ(outcome.session->duration, each.saved.duration > 0 ? 100 : 180);
    EXPECT_FALSE(outcome.session->historyNavigationIndex);
  }
  EXPECT_TRUE(_capture.contains("📂 Restore: done — track=\"3\" idx=1/4"));
  const auto nothing = restore({.trackId = 2, .queueIds = {2}});
  EXPECT_FALSE(nothing.session || nothing.failed);
  EXPECT_TRUE(_capture.contains("📂 Restore: no tracks found in DB"));
}

TEST_F(RestoreTest, TheHistoryReachesTheSavedStep) {
  for (int i = 0; i < 60; ++i) {
    _manager->history().recordPlay(i % 2 == 0 ? 1 : 3,
                                   std::chrono::system_clock::time_point(1s * (i + 1)), 1, false);
  }
  struct Case {
    std::optional<std::int64_t> offset;
    std::size_t rows;
    std::optional<std::size_t> index;
  };
  constexpr auto kHuge = std::numeric_limits<std::int64_t>::max();
  for (const Case& each : {Case{{}, 50, {}}, Case{0, 50, 49}, Case{55, 60, 4}, Case{60, 60, {}},
                           Case{kHuge, 60, {}}, Case{-1, 50, {}}}) {
    const auto session = restore({.trackId = 1, .historyNavOffset = each.offset}).session;
    ASSERT_TRUE(session);
    EXPECT_EQ(session->history.size(), each.rows);
    EXPECT_EQ(session->historyNavigationIndex, each.index);
    EXPECT_FALSE(session->historyFullyLoaded);
    EXPECT_EQ(session->history.back().track.track.title, "3") << "newest last";
  }
}

TEST_F(RestoreTest, PartsOfAFileComeBackWithoutTheirSheet) {
  test::FlacFixture::make({.sampleRate = 8000, .frames = 40'000}).write(_folder / "disc.flac");
  std::ofstream(_folder / "disc.cue")
      << "PERFORMER \"Band\"\nTITLE \"Album\"\nFILE \"disc.flac\" WAVE\nTRACK 01 AUDIO\n"
         "TITLE \"One\"\nINDEX 01 00:00:00\nTRACK 02 AUDIO\nTITLE \"Two\"\nINDEX 01 00:01:25\n";
  const auto tracks = trackInfosFromCue(_folder / "disc.cue");
  ASSERT_EQ(tracks.size(), 2U);
  std::filesystem::remove(_folder / "disc.cue");
  Preferences preferences(_folder / "p.plist");
  SavedSession saved{.externalTrack = savedExternalOf(tracks[1]), .queueIndex = 1};
  setQueue(saved, tracks);
  SessionStore(preferences).save(saved);

  Preferences later(_folder / "p.plist");
  RestoreOutcome outcome;
  bool isDone = false;
  SessionRestorer restorer(later, _manager);
  restorer.restore([&](RestoreOutcome restored) {
    outcome = std::move(restored);
    isDone = true;
  });
  EXPECT_FALSE(isDone);
  ASSERT_TRUE(MainThread::instance().runUntil([&] { return isDone; }, 10s));
  ASSERT_TRUE(outcome.session);
  EXPECT_EQ(outcome.session->timeline, tracks);
  EXPECT_EQ(outcome.session->currentTrack, tracks[1]);
}

TEST_F(RestoreTest, AForeignHandInTheFileDoesNoHarm) {
  constexpr auto kHuge = std::numeric_limits<std::int64_t>::max();
  const PreferenceValue text{"x"s};
  // clang-format off
  const PreferenceValue values[] = {
      {true}, {std::int64_t{-1}}, {kHuge}, {-kHuge - 1}, {-1e308}, {std::nan("")}, {HUGE_VAL},
      {"\0x"s}, {PreferenceBytes{1}},
      {PreferenceList{{kHuge}, text, {std::int64_t{-3}}, {3.5}, {PreferenceMap{}}}},
      {PreferenceMap{{"-1", text}, {"0", {""s}}, {"1 ", {true}}, {"99999999999999999999", text},
                     {"start", {1e308}}, {"end", {-1.0}}, {"number", {1e300}}}}};
  // clang-format on
  const auto file = _folder / "p.plist";
  for (const char* key :
       {"lastTrackId", "lastTrackPosition", "lastTrackDuration", "lastQueueIds", "lastQueueIndex",
        "lastAutoplayIds", "lastIsAutoplay", "lastHistoryNavOffset", "lastExternalPaths",
        "lastExternalTrackPath", "lastExternalCueParts", "lastExternalTrackCuePart"}) {
    for (const PreferenceValue& value : values) {
      PreferenceMap map{{"lastTrackId", {std::int64_t{1}}},
                        {"lastQueueIds", {listOf({1, 3})}},
                        {"lastExternalPaths", {PreferenceMap{{"1", {"/none/e.flac"s}}}}}};
      map.insert_or_assign(key, value);
      ASSERT_FALSE(replaceFile(file, *propertyList::format({map})));
      Preferences preferences(file);
      const auto loaded = SessionStore(preferences).load();
      if (!loaded) continue;  // no trackId
      const auto session = restore(*loaded).session;
      ASSERT_TRUE(session) << key;
      ASSERT_LT(static_cast<std::size_t>(session->timelineIndex), session->timeline.size()) << key;
      EXPECT_TRUE(std::isfinite(session->currentPosition) && session->currentPosition >= 0) << key;
      EXPECT_TRUE(std::isfinite(session->duration) && session->duration >= 0) << key;
    }
  }
}

TEST_F(RestoreTest, ALibraryThatCannotBeReadIsNoEmptyOne) {
  _library.run("ALTER TABLE tracks RENAME TO elsewhere");
  EXPECT_TRUE(restore({.trackId = 1}).failed);
  EXPECT_TRUE(_capture.contains("❌ Restore: the library cannot be read: "));
  _manager->setDbQueue(nullptr);
  EXPECT_TRUE(restore({.trackId = 1}).failed);
}

}  // namespace
}  // namespace velorin
