// The shell's parts that need no player: what is handed over, which files are opened, the menus.
#include <gtest/gtest.h>

#include <fstream>

#include "shell/ControlSettings.h"
#include "shell/InstanceMessage.h"
#include "shell/OpenFiles.h"
#include "shell/menus/MenuModel.h"
#include "support/TemporaryFolder.h"

namespace velorin {
namespace {

namespace fs = std::filesystem;

TEST(InstanceMessages, ComeBackWhateverThePathsHold) {
  std::string everyByte = "/";
  for (int byte = 1; byte < 256; ++byte) everyByte += static_cast<char>(byte);
  const InstanceRequest requests[] = {
      {InstanceAction::open, {}},
      {InstanceAction::playNext, {"/a b%41.flac", everyByte, "/", "/new\nline", "/丸の内"}},
      {InstanceAction::set, {}, {"device", everyByte, ""}},
      {InstanceAction::quit, {}},
  };
  for (const InstanceRequest& request : requests) {
    const std::string line = encode(request);
    EXPECT_EQ(line.find('\n'), line.size() - 1);
    const auto back = decodeRequest(line);
    ASSERT_TRUE(back) << line << back.error().text;
    EXPECT_EQ(back.value(), request) << line;
  }
  const InstanceAnswer answer{true, "line\nof “text” \xff"};
  const auto back = decodeAnswer(encode(answer));
  ASSERT_TRUE(back);
  EXPECT_EQ(back->text, "line\nof “text” \xEF\xBF\xBD");
}

TEST(InstanceMessages, NonsenseIsRefused) {
  const std::string deep = std::string(100'000, '[');
  const std::string requests[] = {
      "",
      "{}",
      "[]",
      "nonsense\xff",
      R"({"velorin":1})",
      R"({"velorin":1,"action":7})",
      R"({"velorin":1,"action":"dance"})",
      R"({"velorin":2,"action":"play"})",
      R"({"velorin":"1","action":"play"})",
      R"({"velorin":1,"action":"play","paths":["/a"]})",
      R"({"velorin":1,"action":"open","paths":"/a"})",
      R"({"velorin":1,"action":"open","paths":[1]})",
      R"({"velorin":1,"action":"open","paths":["relative"]})",
      R"({"velorin":1,"action":"open","paths":["/a%0"]})",
      R"({"velorin":1,"action":"open","paths":["/a%zz"]})",
      R"({"velorin":1,"action":"open","paths":["/a%00b"]})",
      R"({"velorin":1,"action":"open","paths":["/a b"]})",
      R"({"velorin":1,"action":"play","words":["volume"]})",
      R"({"velorin":1,"action":"set","words":"volume"})",
      R"({"velorin":1,"action":"set","words":["volume",1]})",
      R"({"velorin":1,"action":"set","words":["a%00b"]})",
      R"({"velorin":1,"action":)" + deep,
  };
  for (const std::string& request : requests) EXPECT_FALSE(decodeRequest(request)) << request;
  EXPECT_FALSE(decodeAnswer(R"({"velorin":1,"ok":true})"));
}

TEST(ControlSettings, TakeWhatTheySayTheyTake) {
  const struct {
    std::vector<std::string> words;
    bool isFine;
  } cases[] = {
      {{}, false},
      {{"loudness", "on"}, false},
      {{"volume"}, false},
      {{"volume", "0.5"}, true},
      {{"volume", "1"}, true},
      {{"volume", "1.5"}, false},
      {{"volume", "nan"}, false},
      {{"volume", "0.5x"}, false},
      {{"volume", "0.5", "0.5"}, false},
      {{"exclusive", "on"}, true},
      {{"exclusive", "yes"}, false},
      {{"volume-mode", "fixed"}, true},
      {{"volume-mode", "loud"}, false},
      {{"memory-limit", "0"}, false},
      {{"strategy", "powerOf2"}, true},
      {{"device"}, false},
      {{"device", "default"}, true},
      {{"device", "a", "b"}, true},
  };
  for (const auto& each : cases) {
    EXPECT_EQ(!problemWithSetting(each.words), each.isFine) << testing::PrintToString(each.words);
  }
}

TEST(FilesToOpen, FoldersStandForTheirMusicByPath) {
  const test::TemporaryFolder folder;
  for (const char* const name : {"b/2.flac", "b/1.FLAC", "b/.hidden.flac", "b/cover.jpg",
                                 "a/z/deep.opus", "a/y.cue", "notes.txt", "single.ogg"}) {
    fs::create_directories((folder / name).parent_path());
    std::ofstream(folder / name) << "x";
  }
  fs::create_directory_symlink(folder.path(), folder / "b/loop");
  fs::create_directory(folder / "empty");
  const auto at = [&](const char* name) { return folder / name; };

  const FilesToOpen given = filesToOpen({at("single.ogg"), at("b/2.flac"), at("b/1.FLAC")});
  EXPECT_EQ(given.files, (std::vector{at("single.ogg"), at("b/2.flac"), at("b/1.FLAC")}));
  EXPECT_TRUE(given.problems.empty());

  const FilesToOpen sorted = sortedFilesToOpen({at("single.ogg"), at("b"), at("a")});
  EXPECT_EQ(sorted.files.front(), at("a/y.cue"));
  EXPECT_EQ(sorted.files.back(), at("single.ogg"));

  const FilesToOpen bad = filesToOpen({at("notes.txt"), at("gone.flac"), at("empty")});
  EXPECT_TRUE(bad.files.empty());
  EXPECT_EQ(bad.problems.size(), 3U);

  std::ofstream(folder / "list.M3U8") << "single.ogg\nb/2.flac\nnotes.txt\ngone.flac\n";
  const FilesToOpen listed = filesToOpen({at("list.M3U8")});
  EXPECT_EQ(listed.files, (std::vector{at("single.ogg"), at("b/2.flac")}));
  ASSERT_EQ(listed.problems.size(), 1U);
  EXPECT_NE(listed.problems[0].find("2 of 4 entries"), std::string::npos) << listed.problems[0];
  EXPECT_EQ(absolutePath("x/./y").native(), (fs::current_path() / "x/y").native());
}

/// One line an item: "-" a separator, "( )" disabled, "✓" checked, submenus in brackets.
std::string drawn(const Menu& menu) {
  std::string text;
  for (const MenuItem& item : menu) {
    if (item.isSeparator()) {
      text += "-\n";
      continue;
    }
    text += std::string(static_cast<std::size_t>(item.indent), ' ');
    text += item.enabled ? item.title : "(" + item.title + ")";
    if (item.checked) text += " ✓";
    if (!item.icon.empty()) text += " [" + item.icon + "]";
    text += "\n";
    if (!item.submenu.empty()) text += "{" + drawn(item.submenu) + "}\n";
  }
  return text;
}

TEST(Menus, ShowWhatThePlayerDoes) {
  EXPECT_TRUE(dockMenu({}).empty());
  MenuState idle;
  idle.outputDevice = "DAC";
  EXPECT_EQ(drawn(statusMenu(idle)),
            "Show Velorin\n-\n(Not Playing)\n-\n(Play) [play.fill]\nNext [forward.end.fill]\n"
            "Previous [backward.end.fill]\n-\n(Stop) [stop.fill]\n(Stop After Current)\n"
            "Sleep Timer [moon]\n{End of Current Track\n15 Minutes\n30 Minutes\n1 Hour\n-\n"
            "Settings…\n}\n-\n(Audio)\n  (DAC)\n-\nExclusive Mode (HOG)\nInteger Mode\n"
            "Gapless Playback ✓\nMemory Playback\nSR: Native\nStereo Width Off\n");

  MenuState playing;
  playing.track = {{.title = "Song",
                    .artist = "Singer",
                    .isInLibrary = true,
                    .isFavorite = true,
                    .sourceFormat = "FLAC"}};
  playing.state = PlaybackState::playing;
  playing.radioRuns = playing.stopAfterCurrent = playing.sleepTimerRuns = true;
  playing.sleepTimerSecondsRemaining = 3725;
  playing.stereoWidener = true;
  playing.stereoWidth = 1.255F;
  playing.strategy = SampleRateStrategy::powerOf2;
  playing.multiplier = 4;
  playing.memoryPlayback = true;
  const std::string section =
      "(Now Playing)\n  (Song)\n  (Singer)\n-\nPause [pause.fill]\nNext [forward.end.fill]\n"
      "Previous [backward.end.fill]\n-\nRemove from Favorites [heart.fill]\n"
      "Stop Radio [stop.circle]\n-\nStop [stop.fill]\nStop After Current ✓\nSleep Timer [moon]\n"
      "{End of Current Track\n15 Minutes\n30 Minutes\n1 Hour\n-\nCancel Timer (1:02:05)\n-\n"
      "Settings…\n}\n";
  EXPECT_EQ(drawn(dockMenu(playing)), section);
  EXPECT_EQ(drawn(statusMenu(playing)),
            "Show Velorin\n-\n" + section +
                "-\n(Audio)\n  (FLAC)\n-\nExclusive Mode (HOG)\nInteger Mode\n"
                "Gapless Playback ✓\nMemory Playback ✓\nSR: ×4\nStereo Width 126%\n");

  playing.track->artist = "Unknown Artist";
  playing.track->isInLibrary = false;
  playing.sleepTimerEndOfTrack = true;
  const std::string external = drawn(dockMenu(playing));
  EXPECT_EQ(external.find("Artist"), std::string::npos);
  EXPECT_EQ(external.find("Favorites"), std::string::npos);
  EXPECT_NE(external.find("Cancel Timer (End of Track)"), std::string::npos);

  const Menu sleep = dockMenu(playing).back().submenu;
  for (const auto& [index, minutes] : {std::pair{1, 15}, {2, 30}, {3, 60}}) {
    EXPECT_EQ(sleep[static_cast<std::size_t>(index)].tag, minutes);
  }
}

}  // namespace
}  // namespace velorin
