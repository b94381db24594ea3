// The player under playerctl and other programs on a private bus, with a real engine.
#include "desktop/MediaControls.h"

#include <fstream>

#include "desktop/TrackListWindow.h"
#include "desktop/TrackNotification.h"
#include "engine/EngineHarness.h"
#include "platform/desktop/BusPeer.h"
#include "platform/desktop/FileUri.h"
#include "platform/desktop/NotificationServer.h"
#include "platform/desktop/SessionBus.h"
#include "session/PlayerState.h"
#include "support/ChildProcess.h"
#include "support/DBusSession.h"

namespace velorin {
namespace {

using test::MprisPeer;
using Lines = std::vector<std::string>;
using Paths = MprisPeer::Paths;

constexpr std::uint32_t kFrames = 44100 * 4;

/// The device stands still unless it is pulled.
class MediaControlsTest : public test::EngineHarness, public testing::Test {
 protected:
  MediaControlsTest() : EngineHarness(test::wideDevice(VirtualClock::manual)) {
    std::ofstream(folder / "7.jpg") << "cover";
    player.emplace(*engine, preferences, bus, PlayerServices{},
                   PlayerState::Options{.restoresSession = false, .storesSession = false});
    controls.emplace(*player, desktop,
                     MediaControls::Options{.coverPath =
                                                [this](std::int64_t album) {
                                                  return folder / fmt::format("{}.jpg", album);
                                                },
                                            .raise = {},
                                            .quit = [this] { hasQuit = true; }});
    EXPECT_TRUE(session.waitForName("org.mpris.MediaPlayer2.velorin"));
  }
  ~MediaControlsTest() override {
    controls.reset();
    player.reset();
  }

  TrackInfo info(const std::string& title) {
    TrackInfo made;
    made.track = file(title + ".flac", {.frames = kFrames, .seed = ++_seed});
    made.track.title = title;
    made.track.id = _seed;
    made.track.duration = 4;
    made.album.id = 7;
    made.album.title = "Album";
    made.album.artistId = 3;
    made.artist = {.id = 3, .name = "Artist"};
    return made;
  }

  std::string uriOf(const std::string& name) { return fileUri((folder / name).native()); }

  /// What playerctl prints.
  std::string ctl(Lines arguments) {
    arguments.insert(arguments.begin(), {"playerctl", "-p", "velorin"});
    std::string said = test::away([&] { return test::runProgram(arguments); });
    while (said.ends_with('\n')) said.pop_back();
    return said;
  }
  bool comesToSay(const Lines& arguments, const std::string& expected) {
    std::string said;
    const bool came = waitUntil([&] { return (said = ctl(arguments)) == expected; });
    if (!came) ADD_FAILURE() << arguments.front() << " says " << said;
    return came;
  }
  bool plays(const std::string& title) {
    return waitUntil([&] {
      return player->state() == PlaybackState::playing && !player->isLoading() &&
             player->currentTrack()->track.title == title && engine->currentTrack() &&
             engine->currentTrack()->title == title;
    });
  }
  std::string titles() {
    std::string all;
    for (const TrackInfo& item : player->timeline()) all += item.track.title;
    return all;
  }

  test::DBusSession session;
  SessionBus desktop;
  bool hasQuit = false;
  std::optional<PlayerState> player;
  std::optional<MediaControls> controls;

 private:
  std::uint32_t _seed = 0;
};

TEST_F(MediaControlsTest, PlayerctlControlsThePlayer) {
  EXPECT_EQ(ctl({"-l"}), "velorin");
  EXPECT_EQ(ctl({"status"}), "Stopped");
  player->playTracks({info("a"), info("b"), info("c")}, 0);
  ASSERT_TRUE(plays("a"));
  EXPECT_TRUE(comesToSay({"status"}, "Playing"));
  EXPECT_EQ(ctl({"metadata", "--format",
                 "{{artist}}|{{album}}|{{title}}|{{mpris:length}}|{{xesam:url}}|{{mpris:artUrl}}"}),
            fmt::format("Artist|Album|a|4000000|{}|{}", uriOf("a.flac"), uriOf("7.jpg")));

  ctl({"play-pause"});
  EXPECT_TRUE(comesToSay({"status"}, "Paused"));
  ctl({"play"});
  EXPECT_TRUE(comesToSay({"status"}, "Playing"));
  ctl({"play"});
  EXPECT_EQ(player->state(), PlaybackState::playing) << "play never pauses";
  ctl({"next"});
  ASSERT_TRUE(plays("b"));
  EXPECT_TRUE(comesToSay({"metadata", "title"}, "b"));
  ctl({"previous"});
  ASSERT_TRUE(plays("a"));

  for (int i = 0; i < 10; ++i) {
    ASSERT_TRUE(waitUntil([&] { return engine->canRender(4410); }));
    pull(4410);
  }
  // Playing, playerctl would count on by itself.
  ctl({"pause"});
  EXPECT_TRUE(comesToSay({"status"}, "Paused"));
  EXPECT_TRUE(comesToSay({"position"}, fmt::format("{:.6f}", player->livePosition())));
  EXPECT_GT(player->livePosition(), 0.1);
  ctl({"position", "2.5"});
  EXPECT_TRUE(comesToSay({"position"}, "2.500000"));
  ctl({"position", "1+"});
  EXPECT_TRUE(comesToSay({"position"}, "3.500000"));
  ctl({"position", "9-"});
  EXPECT_TRUE(comesToSay({"position"}, "0.000000"));
  ctl({"position", "9+"});
  EXPECT_TRUE(comesToSay({"metadata", "title"}, "b")) << "past the end is the next track";
  ASSERT_TRUE(plays("b"));

  ctl({"volume", "0.25"});
  EXPECT_TRUE(comesToSay({"volume"}, "0.250000"));
  EXPECT_EQ(player->volume(), 0.25);
  for (const auto& [said, mode] : {std::pair("Track", RepeatMode::one),
                                   {"Playlist", RepeatMode::all},
                                   {"None", RepeatMode::off}}) {
    ctl({"loop", said});
    EXPECT_TRUE(comesToSay({"loop"}, said));
    EXPECT_EQ(player->repeatMode(), mode);
  }
  ctl({"shuffle", "On"});
  EXPECT_TRUE(comesToSay({"shuffle"}, "On"));

  ctl({"stop"});
  EXPECT_TRUE(comesToSay({"status"}, "Stopped"));
  EXPECT_TRUE(comesToSay({"metadata", "--format", "{{title}}"}, ""));
  ctl({"play"});
  ASSERT_TRUE(plays("b")) << "begins anew";

  std::filesystem::copy_file(folder / "c.flac", folder / "d e.flac");
  std::ofstream(folder / "cover.jpg") << "picture";
  ctl({"open", folder / "d e.flac"});
  ASSERT_TRUE(waitUntil([&] { return player->timeline().size() == 1 && !player->isLoading(); }));
  EXPECT_EQ(player->currentTrack()->track.filePath, folder / "d e.flac");
  EXPECT_TRUE(comesToSay({"metadata", "mpris:artUrl"}, uriOf("cover.jpg")))
      << "the cover beside the file";
}

TEST_F(MediaControlsTest, SeekedTellsJumpsAndNoBeginning) {
  MprisPeer peer;
  const auto seeks = [&](const std::string& last) {
    Lines heard = peer.heardUntil(last);
    std::erase_if(heard, [](const std::string& line) { return !line.starts_with("seeked"); });
    return heard;
  };
  player->playTracks({info("a"), info("b")}, 0);
  ASSERT_TRUE(plays("a"));
  player->nextDebounced();
  ASSERT_TRUE(plays("b"));
  player->pause();
  ASSERT_TRUE(waitUntil([&] { return player->state() == PlaybackState::paused; }));
  player->play();
  ASSERT_TRUE(plays("b"));
  player->seek(1.25);
  EXPECT_EQ(seeks("seeked 1250000"), Lines{"seeked 1250000"});

  player->setRepeatMode(RepeatMode::one);
  player->next();
  EXPECT_EQ(seeks("seeked 0"), Lines{"seeked 0"}) << "the same track again is a jump";
  player->setRepeatMode(RepeatMode::off);
  player->stop();
  ASSERT_TRUE(waitUntil([&] { return player->state() == PlaybackState::stopped; }));
  player->seek(3);
  player->play();
  ASSERT_TRUE(plays("b"));
  EXPECT_EQ(seeks("seeked 3000000").back(), "seeked 3000000");
  controls.reset();
}

TEST_F(MediaControlsTest, TheTrackListIsEditedByItsIds) {
  MprisPeer peer;
  player->playTracks({info("a"), info("b"), info("c"), info("b")}, 1);
  ASSERT_TRUE(plays("b"));
  peer.heardUntil("changed Tracks?");
  const auto tracks = [&] { return peer.get<Paths>(MprisPeer::kTrackList, "Tracks"); };
  const Paths before = tracks();
  ASSERT_EQ(before.size(), 4u);
  EXPECT_NE(before[1], before[3]) << "the same file twice has two ids";
  EXPECT_EQ(peer.get<MprisPeer::Values>(MprisPeer::kPlayer, "Metadata")
                .at("mpris:trackid")
                .get<sdbus::ObjectPath>(),
            before[1]);
  const auto edit = [&](const char* method, auto... arguments) {
    EXPECT_EQ(peer.call(MprisPeer::kTrackList, method, arguments...), "");
  };
  const auto add = [&](const std::string& title, const sdbus::ObjectPath& after, bool plays) {
    info(title);
    edit("AddTrack", uriOf(title + ".flac"), after, plays);
    return waitUntil([&] {
      return std::ranges::any_of(player->timeline(), [&](const TrackInfo& item) {
        return item.track.filePath == folder / (title + ".flac");
      });
    });
  };
  ASSERT_TRUE(add("d", before[2], false));
  ASSERT_TRUE(add("e", before[3], false));
  ASSERT_TRUE(add("f", before[0], false));
  EXPECT_TRUE(waitUntil([&] { return titles() == "abfcdbe"; })) << titles();
  peer.heardUntil("changed Tracks?");
  ASSERT_TRUE(waitUntil([&] { return tracks().size() == 7; }));
  const Paths after = tracks();
  EXPECT_EQ((Paths{after[0], after[1], after[3], after[5]}), before) << "who stays keeps its id";

  edit("RemoveTrack", after[0]);
  edit("RemoveTrack", after[3]);
  EXPECT_EQ(titles(), "abfdbe") << "what was played stays";
  edit("GoTo", before[3]);
  ASSERT_TRUE(plays("b"));
  EXPECT_EQ(player->timelineIndex(), 4);
  ASSERT_TRUE(add("g", before[3], true));
  ASSERT_TRUE(plays("g"));
  EXPECT_EQ(titles(), "abfdbge");
  EXPECT_EQ(peer.call(MprisPeer::kPlayer, "OpenUri", std::string("file:///x.txt")),
            "org.freedesktop.DBus.Error.NotSupported");
  EXPECT_EQ(peer.call(MprisPeer::kRoot, "Quit"), "");
  EXPECT_TRUE(hasQuit);
}

TEST(TrackListWindow, ShowsAPartOfALongQueueWithIdsThatStay) {
  std::vector<TrackInfo> many(1000);
  TrackList timeline(many);
  TrackListWindow window;
  window.update(timeline, 500);
  ASSERT_EQ(window.items().size(), 121u);
  EXPECT_EQ(window.items().front().index, 480u);
  const auto id = *window.idAt(600);
  window.update(timeline, 900);
  EXPECT_FALSE(window.indexOf(id)) << "outside the window";
  timeline.move(600, 910);
  window.update(timeline, 900);
  EXPECT_EQ(window.indexOf(id), 910u) << "the same item at another place";
  timeline.erase(910);
  timeline.append(std::vector<TrackInfo>(1));
  window.update(timeline, 999);
  EXPECT_EQ(window.items().size(), 21u);
  EXPECT_FALSE(window.indexOf(id));
  // One item at two places, as shuffling back and forth may leave it.
  TrackList twice = timeline.from(998);
  twice.append(twice);
  window.update(twice, 0);
  EXPECT_NE(window.idAt(0), window.idAt(2));
  window.update({}, -1);
  EXPECT_TRUE(window.items().empty());
}

TEST(TrackNotification, TellsTheTrackAndActsOnItsActions) {
  TrackInfo info;
  info.track.title = "Title";
  info.artist.name = "Artist";
  info.album.title = "Album";
  using Optional = std::optional<int>;
  for (const auto& [format, rate, bits, body] :
       std::vector<std::tuple<const char*, Optional, Optional, const char*>>{
           {"FLAC", 44100, 16, "FLAC · 44.1 kHz · 16-bit"},
           {"DSD", 2822400, 1, "DSD · 2822.4 kHz · 1-bit"},
           {"MP3", 48000, {}, "MP3 · 48.0 kHz"},
           {nullptr, 800, {}, "800 Hz"},
           {nullptr, {}, {}, ""}}) {
    info.track.format = format ? std::optional<std::string>(format) : std::nullopt;
    info.track.sampleRate = rate;
    info.track.bitDepth = bits;
    EXPECT_EQ(trackNotificationText(info).body, body);
  }
  EXPECT_EQ(trackNotificationText(info).title, "Title");
  EXPECT_EQ(trackNotificationText(info).subtitle, "Artist — Album");

  MainThread::instance();
  test::DBusSession session;
  test::NotificationServer server({"actions", "body"});
  SessionBus desktop;
  Preferences preferences;
  Lines did;
  TrackNotification notification(desktop, preferences, {},
                                 {.next = [&] { did.push_back("next"); },
                                  .togglePlayPause = [&] { did.push_back("toggle"); }});
  preferences.setBool("trackChangeNotification", false);
  notification.show(info);
  preferences.remove("trackChangeNotification");
  info.track.format = "FLAC";
  info.track.sampleRate = 800;
  notification.show(info);
  const auto shown = server.shown(1);
  ASSERT_EQ(shown.size(), 1u);
  EXPECT_EQ(shown[0].body, "Artist — Album\nFLAC · 800 Hz");
  EXPECT_EQ(shown[0].actions, (Lines{"NEXT_TRACK", "Next", "PAUSE", "Pause"}));
  for (const char* key : {"default", "PAUSE", "NEXT_TRACK"}) {
    server.emit("ActionInvoked", std::uint32_t{41}, std::string(key));
  }
  MainThread::instance().runUntil([&] { return did.size() == 2; }, std::chrono::seconds(10));
  EXPECT_EQ(did, (Lines{"toggle", "next"}));
}

}  // namespace
}  // namespace velorin
