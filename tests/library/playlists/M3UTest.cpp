#include <gtest/gtest.h>

#include <fstream>

#include "foundation/Log.h"
#include "library/TestLibrary.h"
#include "library/playlists/M3UManager.h"
#include "library/queries/Playlists.h"
#include "support/TemporaryFolder.h"

namespace velorin {
namespace {

using Paths = std::vector<std::string>;
using Ids = std::vector<std::int64_t>;

TEST(M3U, EachLineMeansAPath) {
  struct Case {
    std::string line;
    std::string path;
    Paths others;
  };
  const std::vector<Case> cases = {
      {" a.mp3\t", "/base/a.mp3", {}},
      {"C:\\Music\\a.mp3", "/Music/a.mp3", {"/base/C:\\Music\\a.mp3"}},
      {"..//x/./a.mp3", "/x/a.mp3", {}},
      {"//m/../../a.mp3", "/a.mp3", {}},
      {"/m/100%25.mp3", "/m/100%.mp3", {"/m/100%25.mp3"}},
      {"/m/100%.mp3", "/m/100%.mp3", {}},
      {"/m/%00%2", "/m/%00%2", {}},
      {"/m/caf%E9.mp3", "/m/caf%E9.mp3", {"/m/caf\xE9.mp3"}},
      {"/m/e\u0301.mp3", "/m/\u00E9.mp3", {"/m/e\u0301.mp3"}},
      {"file:///m/a%20b.mp3", "/m/a b.mp3", {"/base/file:/m/a%20b.mp3", "/base/file:/m/a b.mp3"}},
      {"/m/a\\b.mp3", "/m/a/b.mp3", {"/m/a\\b.mp3"}},
  };
  for (const Case& each : cases) {
    const auto entries = M3UManager::parse("#EXTM3U\r\n" + each.line, true, "/base");
    ASSERT_EQ(entries.size(), 1U) << each.line;
    EXPECT_EQ(entries[0].path, each.path) << each.line;
    EXPECT_EQ(entries[0].otherPaths, each.others) << each.line;
  }
}

TEST(M3U, InfoGoesWithTheNextPath) {
  const auto entries = M3UManager::parse(
      "\xEF\xBB\xBF#EXTM3U\n#EXTINF:123,Artist - Title, too\n# comment\n\na\r#EXTINF:x,T\nb\n"
      "#EXTINF:-1\nc\nd",
      true, "/");
  ASSERT_EQ(entries.size(), 4U);
  EXPECT_EQ(entries[0].path, "/a");
  EXPECT_EQ(entries[0].duration, 123.0);
  EXPECT_EQ(entries[0].title, "Artist - Title, too");
  EXPECT_EQ(entries[1].duration, std::nullopt);
  EXPECT_EQ(entries[1].title, "T");
  EXPECT_EQ(entries[2].duration, -1.0);
  EXPECT_EQ(entries[2].title, std::nullopt);
  EXPECT_EQ(entries[3].duration, std::nullopt);

  const auto legacy = M3UManager::parse("/m/caf\xE9 \x93x\x94.mp3", false, "/");
  EXPECT_EQ(legacy[0].path, "/m/café “x”.mp3");
  EXPECT_EQ(legacy[0].otherPaths, Paths{"/m/caf\xE9 \x93x\x94.mp3"});
  EXPECT_THROW(M3UManager::parse("/m/caf\xE9.mp3", true, "/"), M3UError);
}

class M3UFiles : public testing::Test {
 protected:
  std::string write(const std::string& name, const std::string& bytes) const {
    std::ofstream(_folder / name, std::ios::binary) << bytes;
    return (_folder / name).native();
  }
  std::int64_t add(const std::string& path) {
    return _library.add({.title = "Title " + std::to_string(_tracks++), .path = path});
  }
  Ids tracksOf(std::int64_t playlist) {
    return test::idsOf(Playlists(_library.database()).fetchPlaylistTracks(playlist));
  }

  const test::TemporaryFolder _folder;
  test::TestLibrary _library;
  const M3UManager _manager{_library.database()};
  int _tracks = 0;
};

TEST_F(M3UFiles, TracksAreFoundWhereverTheyLieToday) {
  const auto exact = add("/m/A/exact.flac");
  const auto raw = add("/m/caf\xE9.flac");
  const auto decomposed = add("/m/e\u0301.flac");
  const auto firstIntro = add("/m/Other/Album/01 Intro.flac");
  const auto intro = add("/new/Band/ALBUM/01 intro.flac");
  const auto name = add("/new/x/y/Name_%.mp3");
  add("/new/x/y/NameXX.mp3");
  const auto cue = _library.add({.path = "/m/image.flac", .cueStart = 0.0});
  const auto whole = _library.add({.title = "whole", .path = "/m/image.flac"});
  ASSERT_LT(cue, whole);

  log::Capture log;
  const std::string list =
      "#EXTM3U\n/m/A/exact.flac\n/gone/1.mp3\n/m/caf\xE9.flac\n/old/Band/Album/01 Intro.flac\n"
      "/m/A/../A/exact.flac\nD:\\Music\\name_%.MP3\n/m/image.flac\n/else/01 INTRO.flac\n";
  const auto result = _manager.importPlaylist(write(" Mix .m3u", list));
  EXPECT_EQ(result.name, "Mix");
  EXPECT_EQ(result.entries, 8U);
  EXPECT_EQ(result.notFound, Paths{"/gone/1.mp3"});
  EXPECT_EQ(tracksOf(result.playlistId), (Ids{exact, raw, intro, name, whole, firstIntro}));
  EXPECT_TRUE(log.contains("M3U import 'Mix': 1/8 tracks not found in library"));
  EXPECT_TRUE(log.contains("✅ M3U imported 'Mix': 6 tracks"));

  Playlists(_library.database()).deletePlaylist(result.playlistId);
  const auto utf8 = write("mix.m3u8", "/m/\u00E9.flac\n");
  EXPECT_EQ(_manager.importPlaylist(utf8).name, "mix (2)");
  const auto third = _manager.importPlaylist(utf8);
  EXPECT_EQ(third.name, "mix (3)");
  EXPECT_EQ(tracksOf(third.playlistId), Ids{decomposed});
}

TEST_F(M3UFiles, WhatMakesNoPlaylistSaysWhyAndLeavesNoneBehind) {
  struct Case {
    std::string file;
    M3UError::Code code;
    const char* text;
  };
  const std::vector<Case> cases = {
      {write("a.m3u", "#EXTM3U\n"), M3UError::Code::empty, "M3U file is empty"},
      {write("b.m3u", "/none.mp3"), M3UError::Code::noMatch,
       "No tracks from M3U matched the library"},
      {write("c.m3u8", "\xFF"), M3UError::Code::unreadable, "it is not UTF-8"},
      {_folder.path(), M3UError::Code::unreadable, nullptr},
      {_folder / "none.m3u", M3UError::Code::unreadable, nullptr},
  };
  for (const Case& each : cases) {
    try {
      _manager.importPlaylist(each.file);
      ADD_FAILURE() << each.file;
    } catch (const M3UError& error) {
      EXPECT_EQ(error.code, each.code) << each.file;
      if (each.text != nullptr) {
        EXPECT_EQ(error.message, each.text);
      }
    }
  }
  EXPECT_TRUE(Playlists(_library.database()).fetchPlaylists().empty());
}

TEST_F(M3UFiles, WhatIsExportedComesBack) {
  Ids ids;
  for (const char* path :
       {"/m/a.flac", "/m/new\nline 100%41.flac", "/m/caf\xE9%.flac", "/m/é.flac"}) {
    ids.push_back(add(path));
  }
  Playlists playlists(_library.database());
  const auto id = *playlists.createPlaylist("Out").id;
  playlists.addTracks(id, ids);
  _library.run("UPDATE tracks SET duration = 61.9, title = ? WHERE id = ?", "two\nlines", ids[1]);
  _library.run("UPDATE tracks SET duration = 9e999 WHERE id = ?", ids[2]);
  const std::string text = _manager.exportPlaylist(id);
  EXPECT_EQ(text,
            "#EXTM3U\n#EXTINF:180,Artist - Title 0\n/m/a.flac\n"
            "#EXTINF:61,Artist - two lines\n/m/new%0Aline 100%2541.flac\n"
            "#EXTINF:0,Artist - Title 2\n/m/caf%E9%25.flac\n"
            "#EXTINF:180,Artist - Title 3\n/m/é.flac\n");
  EXPECT_EQ(tracksOf(_manager.importPlaylist(write("Back.m3u8", text)).playlistId), ids);
  EXPECT_EQ(_manager.exportPlaylist(99), "#EXTM3U\n");
}

}  // namespace
}  // namespace velorin
