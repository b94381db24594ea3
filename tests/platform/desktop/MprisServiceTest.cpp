// The player's object on a private bus, as another program sees it.
#include "platform/desktop/MprisService.h"

#include <gtest/gtest.h>

#include <fstream>

#include "BusPeer.h"
#include "foundation/Log.h"
#include "platform/desktop/FileUri.h"
#include "platform/desktop/SessionBus.h"
#include "platform/desktop/TrackListChanges.h"
#include "support/DBusSession.h"
#include "support/Eventually.h"
#include "support/TemporaryFolder.h"

namespace velorin {
namespace {

using namespace std::chrono_literals;
using test::MprisPeer;
using Lines = std::vector<std::string>;

constexpr const char* kRoot = MprisPeer::kRoot;
constexpr const char* kPlayer = MprisPeer::kPlayer;
constexpr const char* kTrackList = MprisPeer::kTrackList;
const sdbus::ObjectPath kNoTrack("/org/mpris/MediaPlayer2/TrackList/NoTrack");

sdbus::ObjectPath path(int id) {
  return sdbus::ObjectPath("/com/velorin/track/" + std::to_string(id));
}

MprisTrack track(MprisTrackId id, std::string title = "Title") {
  MprisTrack made;
  made.id = id;
  made.filePath = "/music/a.flac";
  made.title = std::move(title);
  made.length = 60'000'000;
  return made;
}

MprisState playing(MprisTrack current) {
  MprisState state;
  state.status = MprisStatus::playing;
  state.track = std::move(current);
  state.canSeek = true;
  return state;
}

class MprisServiceTest : public testing::Test {
 protected:
  MprisCommands commands() {
    MprisCommands all;
    const auto note = [this](std::string line) { return [this, line] { did.push_back(line); }; };
    all.quit = note("quit");
    all.play = note("play");
    all.pause = note("pause");
    all.playPause = note("playPause");
    all.stop = note("stop");
    all.next = note("next");
    all.previous = note("previous");
    const auto number = [this](const char* name) {
      return [this, name](auto value) { did.push_back(fmt::format("{} {}", name, value)); };
    };
    all.seek = number("seek");
    all.setShuffle = number("shuffle");
    all.setVolume = number("volume");
    all.removeTrack = number("remove");
    all.goTo = number("go");
    all.setLoop = [this](MprisLoop loop) {
      did.push_back(fmt::format("loop {}", static_cast<int>(loop)));
    };
    all.setPosition = [this](MprisTrackId id, std::int64_t position) {
      did.push_back(fmt::format("position {} {}", id, position));
    };
    all.openFile = [this](const std::string& file) {
      did.push_back("open " + file);
      return file.ends_with(".flac");
    };
    all.addTrack = [this](const std::string& file, std::optional<MprisTrackId> after, bool plays) {
      did.push_back(fmt::format("add {} {} {}", file, after.value_or(0), plays));
      return true;
    };
    all.position = [] { return std::int64_t{1'500'000}; };
    return all;
  }

  // What the commands did since the last call; waits for as many.
  Lines done(std::size_t count) {
    MainThread::instance().runUntil([&] { return did.size() >= count; }, 10s);
    return std::exchange(did, {});
  }

  void SetUp() override {
    MainThread::instance();
    service.setTracks({track(6), track(7), track(8)});
    service.update(playing(track(7)));
    ASSERT_TRUE(session.waitForName("org.mpris.MediaPlayer2.velorin"));
    peer.emplace();
  }

  Lines did;
  test::DBusSession session;
  SessionBus bus;
  MprisService service{bus, commands()};
  std::optional<MprisPeer> peer;
};

TEST_F(MprisServiceTest, TellsWhatIsKnownOfATrackInValidText) {
  test::TemporaryFolder folder;
  const auto cover = folder / "co ver%.jpg";
  MprisTrack odd = track(9, std::string("T\xFF\0x", 4));
  odd.filePath = "/m\xFF/50% \xC3\xA4#;.flac";
  odd.coverPath = cover.native();
  odd.artist = "Artist";
  odd.comment = std::string(4095, 'c') + "\xC3\xA4" + std::string(100'000, 'c');
  odd.year = 1983;
  odd.userRating = 0.8;
  odd.useCount = 3;
  service.update(playing(odd));
  peer->heardUntil("changed Metadata");
  auto told = peer->get<MprisPeer::Values>(kPlayer, "Metadata");
  EXPECT_EQ(told.at("mpris:trackid").get<sdbus::ObjectPath>(), path(9));
  EXPECT_EQ(told.at("mpris:length").get<std::int64_t>(), 60'000'000);
  EXPECT_EQ(told.at("xesam:title").get<std::string>(), "T\uFFFDx");
  EXPECT_EQ(told.at("xesam:artist").get<Lines>(), Lines{"Artist"});
  EXPECT_EQ(told.at("xesam:comment").get<Lines>(), Lines{std::string(4095, 'c')});
  EXPECT_EQ(told.at("xesam:url").get<std::string>(), "file:///m%FF/50%25%20%C3%A4%23%3B.flac");
  EXPECT_EQ(told.at("xesam:contentCreated").get<std::string>(), "1983");
  EXPECT_EQ(told.at("xesam:userRating").get<double>(), 0.8);
  EXPECT_EQ(told.at("xesam:useCount").get<std::int32_t>(), 3);
  EXPECT_EQ(told.count("mpris:artUrl"), 0u) << "the cover is not there";
  EXPECT_EQ(told.count("xesam:album") + told.count("xesam:genre"), 0u);

  std::ofstream(cover) << "picture";
  told = peer->get<MprisPeer::Values>(kPlayer, "Metadata");
  EXPECT_EQ(told.at("mpris:artUrl").get<std::string>(), fileUri(cover.native()));
  EXPECT_EQ(pathOfFileUri(told.at("mpris:artUrl").get<std::string>()), cover.native());

  service.update({});
  peer->heardUntil("changed CanSeek Metadata PlaybackStatus");
  told = peer->get<MprisPeer::Values>(kPlayer, "Metadata");
  EXPECT_EQ(told.size(), 1u);
  EXPECT_EQ(told.at("mpris:trackid").get<sdbus::ObjectPath>(), kNoTrack);

  EXPECT_EQ(peer->get<std::int64_t>(kPlayer, "Position"), 1'500'000);
  EXPECT_FALSE(peer->get<bool>(kRoot, "CanRaise")) << "there is no window";
  EXPECT_TRUE(peer->get<bool>(kRoot, "CanQuit"));
  EXPECT_TRUE(peer->get<bool>(kRoot, "HasTrackList"));
}

TEST_F(MprisServiceTest, AnnouncesWhatChangedAndJumpsOnly) {
  MprisState state = playing(track(7));
  service.update(state);
  state.volume = 0.5;
  service.update(state);
  EXPECT_EQ(peer->heardUntil("changed Volume"), Lines{"changed Volume"});
  state.status = MprisStatus::paused;
  state.loop = MprisLoop::playlist;
  service.update(state);
  service.seeked(42);
  EXPECT_EQ(peer->heardUntil("seeked 42"),
            (Lines{"changed LoopStatus PlaybackStatus", "seeked 42"}));
}

TEST_F(MprisServiceTest, DoesWhatIsAskedAndRefusesWhatCannotBe) {
  const std::string none;
  const std::string invalid = "org.freedesktop.DBus.Error.InvalidArgs";
  const std::string notSupported = "org.freedesktop.DBus.Error.NotSupported";
  for (const auto& [interface, method, expected] :
       std::vector<std::tuple<const char*, const char*, Lines>>{
           {kRoot, "Raise", {}},
           {kRoot, "Quit", {"quit"}},
           {kPlayer, "Play", {"play"}},
           {kPlayer, "Pause", {"pause"}},
           {kPlayer, "PlayPause", {"playPause"}},
           {kPlayer, "Stop", {"stop"}},
           {kPlayer, "Next", {"next"}},
           {kPlayer, "Previous", {"previous"}}}) {
    EXPECT_EQ(peer->call(interface, method), none) << method;
    EXPECT_EQ(done(0), expected) << method;
  }

  EXPECT_EQ(peer->call(kPlayer, "Seek", std::int64_t{-5}), none);
  EXPECT_EQ(peer->call(kPlayer, "SetPosition", path(7), std::int64_t{60'000'000}), none);
  EXPECT_EQ(done(0), (Lines{"seek -5", "position 7 60000000"}));
  for (const auto& [stale, position] :
       {std::pair(path(8), std::int64_t{1}), {kNoTrack, 1}, {path(7), -1}, {path(7), 60'000'001}}) {
    EXPECT_EQ(peer->call(kPlayer, "SetPosition", stale, position), none);
    EXPECT_EQ(done(0), Lines{}) << stale << position;
  }

  EXPECT_EQ(peer->call(kPlayer, "OpenUri", std::string("file:///a%20b.flac")), none);
  EXPECT_EQ(peer->call(kPlayer, "OpenUri", std::string("file:///a.txt")), notSupported);
  EXPECT_EQ(done(0), (Lines{"open /a b.flac", "open /a.txt"}));
  for (const char* uri : {"http://host/a.flac", "file://host/a.flac", "file:a.flac", "",
                          "file:///a%00.flac", "file:///a%2", "file:///%zz.flac"}) {
    EXPECT_EQ(peer->call(kPlayer, "OpenUri", std::string(uri)), notSupported) << uri;
  }
  EXPECT_EQ(peer->call(kPlayer, "OpenUri", "file:///" + std::string(5'000, 'a')), notSupported);
  EXPECT_EQ(peer->call(kPlayer, "OpenUri", std::int64_t{1}), invalid) << "another type";
  EXPECT_EQ(done(0), Lines{});

  const std::string file = "file:///a.flac";
  EXPECT_EQ(peer->call(kTrackList, "AddTrack", file, path(6), true), none);
  EXPECT_EQ(peer->call(kTrackList, "AddTrack", file, kNoTrack, false), none);
  EXPECT_EQ(peer->call(kTrackList, "AddTrack", file, path(99), false), invalid);
  EXPECT_EQ(peer->call(kTrackList, "RemoveTrack", path(8)), none);
  EXPECT_EQ(peer->call(kTrackList, "GoTo", path(6)), none);
  for (const auto& unknown : {path(99), kNoTrack, sdbus::ObjectPath("/com/velorin/track/7x")}) {
    EXPECT_EQ(peer->call(kTrackList, "GoTo", unknown), none);
  }
  EXPECT_EQ(done(0), (Lines{"add /a.flac 6 true", "add /a.flac 0 false", "remove 8", "go 6"}));

  EXPECT_EQ(peer->set("Volume", 7.5), none);
  EXPECT_EQ(peer->set("Shuffle", true), none);
  EXPECT_EQ(peer->set("LoopStatus", std::string("Track")), none);
  EXPECT_EQ(peer->set("Rate", 2.0), none);
  EXPECT_EQ(peer->set("Rate", 0.0), none);
  EXPECT_EQ(done(4), (Lines{"volume 1", "shuffle true", "loop 1", "pause"}));
  EXPECT_EQ(peer->set("Volume", std::nan("")), invalid);
  EXPECT_EQ(peer->set("LoopStatus", std::string("track")), invalid);
  EXPECT_NE(peer->set("Volume", std::string("loud")), none);
  EXPECT_NE(peer->set("Position", std::int64_t{1}), none);
  EXPECT_EQ(done(0), Lines{});
}

TEST_F(MprisServiceTest, TellsTheTrackListByItsChanges) {
  EXPECT_EQ(peer->get<MprisPeer::Paths>(kTrackList, "Tracks"),
            (MprisPeer::Paths{path(6), path(7), path(8)}));
  EXPECT_EQ(peer->metadataOf({path(8), path(99), kNoTrack}).size(), 1u);
  service.setTracks({track(7), track(9), track(8, "Other")});
  EXPECT_EQ(peer->heardUntil("changed Tracks?"),
            (Lines{"removed " + path(6), "added " + path(9) + " after " + path(7),
                   "edited " + path(8), "changed Tracks?"}));
  service.setTracks({track(8), track(7)});
  EXPECT_EQ(peer->heardUntil("changed Tracks?"),
            (Lines{"replaced 2 " + path(7), "changed Tracks?"}));
  service.setTracks({track(20)});
  EXPECT_EQ(peer->heardUntil("changed Tracks?").back(), "changed Tracks?");
}

TEST(TrackListChanges, TellsOneByOneWhatCanBeTold) {
  const auto list = [](std::initializer_list<MprisTrackId> ids) {
    std::vector<MprisTrack> tracks;
    for (const MprisTrackId id : ids) tracks.push_back(track(id));
    return tracks;
  };
  const auto before = list({1, 2, 3});
  EXPECT_TRUE(changesBetween(before, before, 4).empty());
  const auto slid = changesBetween(before, list({2, 3, 4, 5}), 4);
  EXPECT_EQ(slid.removed, std::vector<MprisTrackId>{1});
  EXPECT_EQ(slid.added, (std::vector<TrackListChanges::Added>{{2, 3}, {3, 4}}));
  EXPECT_EQ(changesBetween(before, list({4, 1, 2, 3}), 4).added,
            (std::vector<TrackListChanges::Added>{{0, std::nullopt}}));
  EXPECT_TRUE(changesBetween(before, list({1, 3, 2}), 4).isReplaced);
  EXPECT_FALSE(changesBetween(before, list({4, 5}), 5).isReplaced);
  EXPECT_TRUE(changesBetween(before, list({4, 5}), 4).isReplaced);
}

TEST_F(MprisServiceTest, AFloodOfCallsIsRefusedAtItsBound) {
  // Nobody serves the main thread meanwhile.
  std::promise<std::string> refused;
  for (std::size_t i = 0; i <= MprisService::kMostOpenCalls; ++i) {
    peer->proxy().callMethodAsync("Next").onInterface(kPlayer).uponReplyInvoke(
        [&, isLast = i == MprisService::kMostOpenCalls](const sdbus::Error* error) {
          if (isLast) refused.set_value(error ? error->getName() : "");
        });
  }
  EXPECT_EQ(refused.get_future().get(), "org.freedesktop.DBus.Error.LimitsExceeded");
  EXPECT_EQ(done(MprisService::kMostOpenCalls).size(), MprisService::kMostOpenCalls);
  // Once they are answered, too, there is room again.
  EXPECT_TRUE(test::eventually([&] { return peer->call(kPlayer, "Next").empty(); }));
}

TEST_F(MprisServiceTest, ASecondInstanceHasANameOfItsOwn) {
  SessionBus otherBus;
  MprisService other(otherBus, commands());
  other.update({});
  EXPECT_TRUE(
      session.waitForName(fmt::format("org.mpris.MediaPlayer2.velorin.instance{}", ::getpid())));
}

TEST(SessionBus, SurvivesABusThatIsAbsentAndOneThatDies) {
  MainThread::instance();
  log::Capture log;
  test::TemporaryFolder folder;
  const std::string address = "unix:path=" + (folder / "bus").native();
  SessionBus bus({.address = address, .retryInterval = 10ms});
  MprisService service(bus, {});
  service.update(playing(track(1)));
  ASSERT_TRUE(log.waitFor("No session bus", 10s));
  for (int life = 0; life < 2; ++life) {
    test::DBusSession session(test::DBusSession::Bus::session, address);
    ASSERT_TRUE(session.waitForName("org.mpris.MediaPlayer2.velorin")) << life;
    {
      MprisPeer peer;
      EXPECT_EQ(peer.get<std::string>(kPlayer, "PlaybackStatus"), "Playing");
    }
    session.kill();
    std::filesystem::remove(folder / "bus");
    ASSERT_TRUE(log.waitFor("The session bus is gone", 10s));
    service.update(playing(track(2)));
  }
  const Lines lines = log.lines();
  EXPECT_EQ(std::ranges::count_if(
                lines, [](const auto& line) { return line.find("No session bus") != line.npos; }),
            1)
      << "told once, not at every attempt";
}

}  // namespace
}  // namespace velorin
