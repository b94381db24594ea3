// The player over a real engine on a virtual device, with a real library.
#include "session/PlayerState.h"

#include <fstream>

#include "engine/EngineHarness.h"
#include "library/DatabaseManager.h"
#include "support/Eventually.h"

namespace velorin {
namespace {

using test::EngineHarness;

constexpr std::uint32_t kBuffer = 512;
constexpr std::uint32_t kFrames = 22050;  // half a second
constexpr double kRate = 44100;

// The test turns the device by hand, and listens are counted by its clock.
class PlayerStateTest : public EngineHarness, public testing::Test {
 protected:
  PlayerStateTest() : EngineHarness(smallBuffers()) { makePlayer(); }
  ~PlayerStateTest() override { player.reset(); }

  static VirtualDeviceDescription smallBuffers() {
    auto device = test::wideDevice(VirtualClock::manual);
    device.bufferRange = {64, kBuffer};
    return device;
  }

  void makePlayer(bool restores = false) {
    player.reset();
    services.database = database;
    PlayerState::Options options;
    options.restoresSession = restores;
    options.shuffleSeed = 7;
    options.now = [this] {
      return std::chrono::system_clock::time_point(
          std::chrono::milliseconds(hardware.framesRendered(device) * 1000 / 44100));
    };
    player.emplace(*engine, preferences, bus, services, options);
  }

  /// Tracks of the library, each with a file of noise.
  std::vector<TrackInfo> album(const std::vector<std::string>& names) {
    std::vector<ScannedItem> items;
    for (const std::string& name : names) {
      Track track = file(name + ".flac", {.frames = kFrames, .seed = ++_seed});
      const auto heard = test::asFloat(lastSamples[0], 16);
      samples.insert(samples.end(), heard.begin(), heard.end());
      track.title = name;
      track.trackNumber = static_cast<int>(_seed);
      track.duration = kFrames / kRate;
      items.push_back({.artistName = "Artist",
                       .albumTitle = "Album",
                       .year = {},
                       .albumGenre = {},
                       .track = track,
                       .artworkPath = {}});
    }
    database->import().insertBatch(items);
    std::vector<std::int64_t> ids;
    for (std::size_t i = 0; i < names.size(); ++i) ids.push_back(++_lastId);
    return database->tracks().fetchTracks(ids);
  }

  /// Renders buffer after buffer, as far as the main thread keeps up.
  bool listenUntil(const std::function<bool()>& condition) {
    return test::eventually([&] {
      do {
        MainThread::instance().runReady();
        if (condition()) return true;
      } while (!player->isLoading() && hardware.isRunning(device) && engine->canRender(kBuffer) &&
               hardware.pull(device, kBuffer));
      return false;
    });
  }
  bool listenFor(double seconds) {
    const auto end = hardware.framesRendered(device) + static_cast<std::uint64_t>(seconds * kRate);
    return listenUntil([&] { return hardware.framesRendered(device) >= end; });
  }
  bool waitForTrack(const std::string& title) {
    return waitUntil([&] { return plays(title); });
  }
  bool plays(const std::string& title) const {
    return player->state() == PlaybackState::playing && !player->isLoading() && shown() == title &&
           engine->currentTrack() && engine->currentTrack()->title == title;
  }
  bool isSilent() const {
    return player->state() == PlaybackState::stopped && !player->isLoading();
  }
  std::string shown() const {
    return player->currentTrack() ? player->currentTrack()->track.title : "";
  }
  /// "a b~": a was played, then b was skipped.
  std::string counted() {
    std::string text;
    database->database().read([&](sqlite::Reader& reader) {
      reader.each(
          "SELECT t.title, h.skipped FROM playbackHistory h JOIN tracks t "
          "ON t.id = h.trackId ORDER BY h.id",
          [&](const sqlite::Row& row) {
            if (!text.empty()) text += " ";
            text += row.get<std::string>(0) + (row.get<bool>(1) ? "~" : "");
          });
    });
    return text;
  }
  bool isCounted(const std::string& expected) {
    return waitUntil([&] { return counted() == expected; });
  }
  std::string trail() const {
    std::string text;
    for (const HistoryEntry& entry : player->history()) text += entry.track.track.title;
    return text;
  }
  std::size_t starts() const {
    return static_cast<std::size_t>(std::ranges::count_if(
        events, [](const std::string& event) { return event.starts_with("track "); }));
  }

  std::shared_ptr<DatabaseManager> database =
      std::make_shared<DatabaseManager>(std::make_shared<ConnectionQueue>(), &bus);
  PlayerServices services;
  std::optional<PlayerState> player;
  std::vector<float> samples;

 private:
  std::uint32_t _seed = 0;
  std::int64_t _lastId = 0;
};

TEST_F(PlayerStateTest, AnAlbumPlaysThroughWithoutAGapAndIsCounted) {
  player->playTracks(album({"a", "b", "c"}), 0);
  EXPECT_TRUE(player->isLoading());
  ASSERT_TRUE(listenUntil([&] { return isSilent() && isCounted("a b c"); })) << counted();
  auto heard = recorder->floats()[0];
  heard.resize(samples.size());
  EXPECT_EQ(heard, samples);
  EXPECT_EQ(hardware.callCount(VirtualOperation::start), 1) << "the device stopped between tracks";
  EXPECT_EQ(trail(), "abc");
  EXPECT_EQ(player->timelineIndex(), 2);
}

TEST_F(PlayerStateTest, TracksThatAreNotJoinedAreCountedAsHeard) {
  player->setGaplessEnabled(false);
  player->playTracks(album({"a", "b"}), 0);
  ASSERT_TRUE(waitForTrack("a"));
  EXPECT_FALSE(engine->nextTrack());
  player->setRepeatMode(RepeatMode::one);
  ASSERT_TRUE(listenUntil([&] { return trail() == "a" && plays("a"); }));
  player->next();  // starts it anew: neither a play nor a skip
  player->setRepeatMode(RepeatMode::off);
  ASSERT_TRUE(listenUntil([&] { return isSilent() && trail() == "aab"; })) << trail();
  EXPECT_TRUE(isCounted("a a b")) << counted();
}

TEST_F(PlayerStateTest, ABurstOfSkipsStartsOneTrack) {
  player->playTracks(album({"a", "b", "c", "d", "e", "f", "g", "h", "i", "j", "k", "l"}), 0);
  ASSERT_TRUE(waitForTrack("a"));
  ASSERT_TRUE(listenFor(0.1));
  events.clear();
  for (int i = 0; i < 10; ++i) player->nextDebounced();
  EXPECT_EQ(shown(), "k");
  EXPECT_EQ(engine->currentTrack()->title, "a");
  ASSERT_TRUE(waitForTrack("k"));
  EXPECT_EQ(starts(), 1u);
  EXPECT_EQ(trail(), "a");
  EXPECT_TRUE(isCounted("a~")) << counted();
  // Beyond the last one there is silence, and it stays.
  player->nextDebounced();
  player->nextDebounced();
  ASSERT_TRUE(waitUntil([&] { return isSilent(); }));
  EXPECT_EQ(shown(), "l");
  // A stop ends a burst.
  player->previousDebounced();
  player->stop();
  EXPECT_FALSE(MainThread::instance().runUntil([&] { return player->isLoading(); },
                                               std::chrono::milliseconds(400)));
}

TEST_F(PlayerStateTest, TheLastWishCounts) {
  const auto tracks = album({"a", "b", "c"});
  player->playTracks({tracks[0]}, 0);
  player->playTracks({tracks[1]}, 0);
  player->playTracks({tracks[2]}, 0);
  ASSERT_TRUE(waitForTrack("c"));
  player->playTracks({tracks[0]}, 0);
  player->stop();
  player->playAlone(tracks[1]);
  player->pause();
  ASSERT_TRUE(waitUntil([&] { return player->state() == PlaybackState::paused; }));
  EXPECT_EQ(shown(), "b");
  EXPECT_FALSE(player->isLoading());
  EXPECT_TRUE(isCounted("c~")) << counted();
  player->stop();
  player->play();
  ASSERT_TRUE(waitForTrack("b"));
}

TEST_F(PlayerStateTest, PreviousWalksThroughTheHistoryAndNextComesBack) {
  const auto tracks = album({"a", "b", "c", "d"});
  player->playAlone(tracks[0]);
  ASSERT_TRUE(waitForTrack("a"));
  player->previous();  // nowhere to go
  EXPECT_EQ(player->historyNavigationIndex(), std::nullopt);
  player->playAlone(tracks[1]);
  player->playTracks({tracks[2], tracks[3]}, 0);
  ASSERT_TRUE(waitForTrack("c"));
  const struct {
    bool forward;
    const char* title;
    std::optional<std::size_t> navigation;
  } steps[] = {{true, "d", {}}, {false, "c", {}}, {false, "c", 2}, {false, "b", 1}, {false, "a", 0},
               {true, "b", 1},  {true, "c", 2},   {true, "c", {}}, {true, "d", {}}};
  for (const auto& step : steps) {
    step.forward ? player->next() : player->previous();
    ASSERT_TRUE(waitForTrack(step.title)) << &step - steps;
    EXPECT_EQ(player->historyNavigationIndex(), step.navigation) << &step - steps;
  }
}

TEST_F(PlayerStateTest, StopAfterCurrentStops) {
  const auto tracks = album({"a", "b"});
  for (const bool gapless : {true, false}) {
    player->setGaplessEnabled(gapless);
    player->playTracks(tracks, 0);
    ASSERT_TRUE(waitForTrack("a"));
    // Also when the next track has been joined already.
    ASSERT_TRUE(!gapless || waitUntil([&] { return engine->joinCountdownRuns(); }));
    player->toggleStopAfterCurrent();
    ASSERT_TRUE(listenUntil([&] { return isSilent() && !player->stopAfterCurrent(); }));
    EXPECT_EQ(shown(), "a");
  }
  EXPECT_TRUE(isCounted("a a")) << counted();
}

TEST_F(PlayerStateTest, AnAlbumGoesOnWithoutAFileThatIsMissingOrBroken) {
  const auto tracks = album({"a", "b", "c", "d"});
  std::filesystem::remove(folder / "b.flac");
  std::ofstream(folder / "c.flac") << "no music";
  player->playTracks(tracks, 0);
  ASSERT_TRUE(listenUntil([&] { return plays("d"); }));
  player->previous();
  ASSERT_TRUE(waitForTrack("a")) << shown();
  // One that was chosen stays.
  player->playFromTimeline(2);
  ASSERT_TRUE(waitUntil([&] { return isSilent(); }));
  EXPECT_EQ(shown(), "c");
  // With nothing left to play it comes to an end.
  for (const char* name : {"a.flac", "d.flac"}) std::filesystem::remove(folder / name);
  player->setRepeatMode(RepeatMode::all);
  player->playTracks(tracks, 0);
  ASSERT_TRUE(waitUntil([&] { return isSilent(); }));
  EXPECT_TRUE(isCounted("a d~ a~")) << counted();
}

TEST_F(PlayerStateTest, ATrackOfAVolumeThatIsAwayWaitsForIt) {
  const auto tracks = album({"a", "b"});
  const auto away = folder / "away";
  std::filesystem::create_directory(away);
  auto moved = tracks;
  moved[0].track.filePath = (away / "a.flac").string();
  player->playTracks(moved, 0);
  ASSERT_TRUE(waitUntil([&] { return isSilent() && player->restoredPosition(); }));
  EXPECT_EQ(shown(), "a");
  std::filesystem::copy(folder / "a.flac", away / "a.flac");
  player->volumeMounted(away);
  EXPECT_TRUE(waitForTrack("a"));
}

TEST_F(PlayerStateTest, ADeviceThatDoesNotStartEndsTheLoading) {
  hardware.failNext(VirtualOperation::start, AudioStatus{-5, "no device"}, 9);
  player->playTracks(album({"a", "b"}), 0);
  ASSERT_TRUE(waitUntil([&] { return isSilent(); }));
  EXPECT_EQ(shown(), "a");
  EXPECT_EQ(counted(), "");
}

TEST_F(PlayerStateTest, WhatTheEngineTookTooEarlyIsShown) {
  const auto tracks = album({"a", "b", "c"});
  player->playTracks({tracks[0], tracks[1]}, 0);
  ASSERT_TRUE(waitForTrack("a"));
  // The join is heard before the main thread can take its wish back.
  ASSERT_TRUE(waitUntil([&] { return engine->joinCountdownRuns(); }));
  while (engine->joinCountdownRuns()) pull(kBuffer);
  player->clearTimeline();
  ASSERT_TRUE(waitForTrack("b"));
  EXPECT_EQ(player->timelineIndex(), -1);
  EXPECT_EQ(player->currentTrack()->album.title, "Album");

  player->appendToTimeline({tracks[0]});
  EXPECT_EQ(engine->nextTrack()->title, "a");
  player->insertAfterCurrent({tracks[2]});
  EXPECT_EQ(engine->nextTrack()->title, "c");
  player->removeFromTimeline(0);
  EXPECT_EQ(engine->nextTrack()->title, "a");
}

TEST_F(PlayerStateTest, ThePositionJumpsAtOnceAndNeverGoesBack) {
  const auto tracks = album({"a", "b"});
  player->setWindowVisible(true);
  player->playTracks(tracks, 0);
  ASSERT_TRUE(waitForTrack("a"));
  double last = 0;
  const auto grows = [&] {
    const double now = player->livePosition();
    const bool isLater = now >= last;
    last = now;
    return isLater;
  };
  for (const double wish : {0.3, 0.1, 0.2}) {
    // Once with the next track waiting in the ring: the seek is one in this track all the same.
    ASSERT_TRUE(wish != 0.1 || waitUntil([&] { return engine->joinCountdownRuns(); }));
    player->seek(wish);
    EXPECT_DOUBLE_EQ(player->currentPosition(), wish);
    last = wish;
    for (int i = 0; i < 5; ++i) {
      ASSERT_TRUE(listenFor(0.01));
      ASSERT_TRUE(waitUntil([&] { return !player->isLoading(); }));
      ASSERT_TRUE(grows()) << last;
    }
    EXPECT_LT(last, wish + 0.2);
    EXPECT_EQ(shown(), "a");
  }
}

TEST_F(PlayerStateTest, FilesFromOutsideKeepTheirOrder) {
  for (const char* name : {"a", "b", "c"}) album({name});
  std::ofstream(folder / "disc.CUE") << "FILE \"c.flac\" WAVE\n TRACK 01 AUDIO\n  TITLE \"c1\"\n"
                                        "  INDEX 01 00:00:00\n TRACK 02 AUDIO\n  TITLE \"c2\"\n"
                                        "  INDEX 01 00:00:20\n";
  player->playFiles({folder / "c.flac"});
  player->playFiles({folder / "b.flac", folder / "gone.flac", folder / "disc.CUE"});
  player->playFiles({folder / "a.flac"}, ServiceMode::playNext);
  ASSERT_TRUE(waitUntil([&] { return player->timeline().size() == 4; }));
  std::string titles;
  for (const TrackInfo& info : player->timeline()) titles += info.track.title + " ";
  EXPECT_EQ(titles, "b a c1 c2 ");
  EXPECT_TRUE(waitForTrack("b"));
  // One that vanished meanwhile drops out.
  std::filesystem::remove(folder / "a.flac");
  player->playFromTimeline(1);
  ASSERT_TRUE(waitForTrack("c1"));
  EXPECT_EQ(player->timeline().size(), 3u);
  EXPECT_EQ(counted(), "") << "nothing of this is in the library";
}

TEST_F(PlayerStateTest, ASessionComesBackWhereItWas) {
  const auto tracks = album({"a", "b", "c"});
  player->setShuffle(true);
  player->setVolume(0.25);
  player->playTracks(tracks, 1);
  ASSERT_TRUE(waitForTrack("b"));
  ASSERT_TRUE(listenFor(0.2));
  player->pause();
  ASSERT_TRUE(waitUntil([&] { return player->state() == PlaybackState::paused; }));
  bus.post(SavePlaybackState{});
  const double position = player->livePosition();
  player->stop();
  ASSERT_TRUE(waitUntil([&] { return isSilent(); }));
  const std::string second = player->timeline()[1].track.title;

  makePlayer(/*restores=*/true);
  ASSERT_TRUE(waitUntil([&] { return player->sessionRestored(); }));
  EXPECT_EQ(shown(), "b");
  EXPECT_EQ(player->timeline()[1].track.title, second);
  EXPECT_TRUE(player->shuffleEnabled());
  EXPECT_EQ(player->volume(), 0.25);
  ASSERT_TRUE(player->restoredPosition());
  EXPECT_NEAR(*player->restoredPosition(), position, 0.02);
  EXPECT_GT(position, 0.15);
  player->togglePlayPause();
  ASSERT_TRUE(waitForTrack("b"));
  EXPECT_GE(player->livePosition(), position - 0.02);
  EXPECT_EQ(trail(), "");
}

TEST_F(PlayerStateTest, AClearedLibraryLeavesNothing) {
  player->playTracks(album({"a", "b"}), 0);
  ASSERT_TRUE(waitForTrack("a"));
  player->next();
  ASSERT_TRUE(waitForTrack("b"));
  bus.post(LibraryDidClear{});
  EXPECT_FALSE(player->currentTrack());
  EXPECT_TRUE(player->timeline().empty() && player->history().empty());
  ASSERT_TRUE(waitUntil([&] { return engine->state() == PlaybackState::stopped; }));
  player->togglePlayPause();
  player->next();
  player->previous();
  ASSERT_TRUE(waitUntil([&] { return isSilent(); }));
  EXPECT_EQ(player->timelineIndex(), -1);
}

TEST_F(PlayerStateTest, NewTagsAndBookmarksReachTheTimeline) {
  auto tracks = album({"a", "b"});
  tracks.push_back(tracks[0]);
  player->playTracks(tracks, 0);
  ASSERT_TRUE(waitForTrack("a"));
  database->database().write(
      [](sqlite::Writer& writer) { writer.run("UPDATE tracks SET title = title || '!'"); });
  bus.post(TrackTagsDidChange{{1, 2}});
  ASSERT_TRUE(waitUntil([&] { return player->timeline().back().track.title == "a!"; }));
  EXPECT_EQ(shown(), "a!");
  EXPECT_EQ(player->timeline()[1].track.title, "b!");
  player->addBookmark(0.2);
  ASSERT_TRUE(waitUntil([&] { return player->timeline().back().track.bookmarks.has_value(); }));
  EXPECT_EQ(player->timeline().back().track.title, "a!");
  EXPECT_EQ(player->currentBookmarks().size(), 1u);
}

TEST_F(PlayerStateTest, AutoplayFollowsTheTimeline) {
  const auto tracks = album({"a", "b", "c", "d"});
  std::vector<bool> refills;
  services.refillAutoplay = [&](bool forced) {
    refills.push_back(forced);
    if (forced) player->setAutoplayQueue({tracks[1], tracks[2]});
  };
  makePlayer();
  player->playTracks({tracks[0]}, 0);
  ASSERT_TRUE(listenUntil([&] { return plays("b"); }));
  EXPECT_TRUE(player->isPlayingAutoplay());
  EXPECT_EQ(player->timelineIndex(), 0);
  EXPECT_EQ(std::ranges::count(refills, true), 1);
  EXPECT_EQ(refills.back(), false) << "the queue runs low";
  // What the listener adds goes first.
  player->appendToTimeline({tracks[3]});
  ASSERT_TRUE(listenUntil([&] { return plays("d"); }));
  EXPECT_FALSE(player->isPlayingAutoplay());
  player->previous();
  ASSERT_TRUE(waitForTrack("a"));
  player->toggleAutoplay();
  EXPECT_TRUE(player->autoplayQueue().empty());
}

TEST_F(PlayerStateTest, ObserversHearOncePerTurn) {
  const auto tracks = album({"a", "b"});
  PlayerChanges heard;
  int calls = 0;
  auto observation = player->observe([&](PlayerChanges changes) {
    heard |= changes;
    ++calls;
    // An observer may step itself.
    if (calls == 1) player->toggleRepeat();
  });
  player->playTracks(tracks, 0);
  player->setVolume(0.5);
  EXPECT_EQ(calls, 0);
  ASSERT_TRUE(waitForTrack("a"));
  EXPECT_TRUE(heard.has(PlayerChange::track) && heard.has(PlayerChange::volume) &&
              heard.has(PlayerChange::modes));
  const int before = calls;
  observation.reset();
  player->stop();
  ASSERT_TRUE(waitUntil([&] { return isSilent(); }));
  EXPECT_EQ(calls, before);
}

}  // namespace
}  // namespace velorin
