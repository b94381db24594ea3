// Music folders, browsing by folder, and folders that move.

#include <gtest/gtest.h>

#include "library/TestLibrary.h"
#include "library/queries/FolderBrowser.h"
#include "library/queries/FolderMove.h"
#include "library/queries/MusicFolders.h"
#include "library/queries/PathPrefix.h"
#include "library/queries/ProcessedCues.h"

namespace velorin {
namespace {

using test::TestLibrary;
using Strings = std::vector<std::string>;

// Names that a pattern, a collation, a character count or a terminator would trip over.
const Strings kNames = {"Rock",
                        "Rock2",
                        "rock",
                        "Rock!",
                        "100%",
                        "100_",
                        "a_b",
                        "axb",
                        "back\\slash",
                        "new\nline",
                        "it's \"so\"",
                        "ünï",
                        "\xC3",
                        "\xFF\xFE",
                        "\x80\xBFtail",
                        "\xF0\x9F\x8E",
                        " ",
                        "|",
                        "Rock/x",
                        "\xC3\xA9\x80",
                        std::string(255, 'n')};

Strings pathsOf(const std::vector<TrackInfo>& infos) {
  Strings paths;
  for (const TrackInfo& info : infos) paths.push_back(info.track.filePath);
  return paths;
}

Strings pathsIn(TestLibrary& library) {
  return library.column<std::string>("SELECT filePath FROM tracks ORDER BY id");
}

TEST(Folders, ThePrefixCountsCharactersAsSqliteDoes) {
  TestLibrary library;
  for (const std::string& name : kNames) {
    const PathPrefix prefix("/m/" + name);
    EXPECT_EQ(prefix.restPosition(),
              library.value<std::int64_t>("SELECT length(?) + 1", prefix.begin()))
        << name;
    EXPECT_EQ(prefix.folder(), "/m/" + name);
    EXPECT_EQ(prefix, PathPrefix(prefix.begin()));
  }
  EXPECT_EQ(PathPrefix("/").begin(), "/");
  EXPECT_EQ(PathPrefix("/").folder(), "/");
}

TEST(Folders, AFolderIsItselfToTheByte) {
  TestLibrary library;
  MusicFolders folders(library.database());
  FolderBrowser browser(library.database());
  for (const std::string& name : kNames) {
    library.add({.path = "/m/" + name + "/a.flac", .duration = 10});
    library.add({.path = "/m/" + name + "/sub/b.flac", .duration = 20});
    folders.addFolder("/m/" + name);
  }
  const auto counts = folders.folderTrackCounts();
  for (const std::string& name : kNames) {
    const std::string path = "/m/" + name;
    const std::int64_t extra = name == "Rock" ? 2 : 0;  // those of "Rock/x"
    EXPECT_EQ(counts.at(path), 2 + extra) << name;
    EXPECT_EQ(browser.folderSummary(path).trackCount, 2 + extra) << name;
    EXPECT_EQ(pathsOf(browser.fetchFolderTracks(path, false)), Strings{path + "/a.flac"});
    if (extra != 0) continue;
    EXPECT_EQ(browser.folderSummary(path).totalDuration, 30) << name;
    EXPECT_EQ(pathsOf(browser.fetchFolderTracks(path + "/", true)),
              (Strings{path + "/a.flac", path + "/sub/b.flac"}));
    EXPECT_EQ(browser.subfolders(path), (std::vector<Subfolder>{{"sub", path + "/sub/", 1}}));
  }
  EXPECT_EQ(browser.subfolders("/m").size(), kNames.size() - 1);
  EXPECT_EQ(browser.subfolders("/"),
            (std::vector<Subfolder>{{"m", "/m/", 2 * static_cast<std::int64_t>(kNames.size())}}));
}

TEST(Folders, ListingsAreInOrderAndPaged) {
  TestLibrary library;
  FolderBrowser browser(library.database());
  for (const char* path :
       {"/m/b.flac", "/m/Zoo/1.flac", "/m/A.flac", "/m/apple/1.flac", "/m/a.flac", "/m/B.flac",
        "/m/Apple/1.flac", "/m/@eaDir/1.flac", "/m/#recycle/1.flac", "/m/#snapshot/1.flac",
        "/m/$RECYCLE.BIN/1.flac", "/m/System Volume Information/1.flac", "/m/@eadir/1.flac"}) {
    library.add({.path = path});
  }
  library.add({.title = "two", .path = "/m/c.flac", .cueStart = 60.0});
  library.add({.title = "one", .path = "/m/c.flac", .cueStart = 0.0});

  Strings names;
  for (const Subfolder& each : browser.subfolders("/m")) names.push_back(each.folderName);
  EXPECT_EQ(names, (Strings{"@eadir", "Apple", "apple", "Zoo"}));

  const Strings direct = {"/m/A.flac", "/m/a.flac", "/m/B.flac",
                          "/m/b.flac", "/m/c.flac", "/m/c.flac"};
  const auto tracks = browser.fetchFolderTracks("/m", false);
  EXPECT_EQ(pathsOf(tracks), direct);
  EXPECT_EQ(tracks[4].track.title + tracks[5].track.title, "onetwo");

  // A short page comes from a statement, a deep one out of the whole order.
  const auto all = pathsOf(browser.fetchFolderTracks("/m", true));
  EXPECT_EQ(all.size(), 15U);
  for (const bool recursive : {false, true}) {
    const Strings whole = recursive ? all : direct;
    for (const std::int64_t limit : {-1, 0, 2, 2000, 5000}) {
      for (const std::int64_t offset : {-3, 0, 1, 5, 100}) {
        const auto from =
            std::min(static_cast<std::size_t>(std::max<std::int64_t>(offset, 0)), whole.size());
        const auto size = limit < 0
                              ? whole.size() - from
                              : std::min(static_cast<std::size_t>(limit), whole.size() - from);
        const auto first = whole.begin() + static_cast<std::ptrdiff_t>(from);
        EXPECT_EQ(pathsOf(browser.fetchFolderTracks("/m", recursive, limit, offset)),
                  Strings(first, first + static_cast<std::ptrdiff_t>(size)))
            << recursive << limit << offset;
      }
    }
  }
  library.add({.path = "/m/0.flac"});
  EXPECT_EQ(browser.fetchFolderTracks("/m", true, 5000).size(), 16U);
}

TEST(Folders, AFolderRemembersWhetherItWasScanned) {
  TestLibrary library;
  MusicFolders folders(library.database());
  folders.addFolder("/m/");
  folders.addFolder("/n");
  EXPECT_EQ(folders.getFolders(), (Strings{"/m", "/n"}));
  EXPECT_FALSE(folders.hasFolderNeedingFullScan());
  const auto added = folders.getLastScanned("/m");
  ASSERT_TRUE(added.has_value());
  folders.markFoldersForFullScan({"/m", "/elsewhere"});
  EXPECT_TRUE(folders.hasFolderNeedingFullScan());
  EXPECT_EQ(folders.getLastScanned("/m"), std::nullopt);
  EXPECT_TRUE(folders.getLastScanned("/n").has_value());
  folders.addFolder("/m");  // is there: stays marked
  EXPECT_TRUE(folders.hasFolderNeedingFullScan());
  folders.updateLastScanned("/m");
  EXPECT_GE(folders.getLastScanned("/m/"), added);
  EXPECT_FALSE(folders.hasFolderNeedingFullScan());
  EXPECT_EQ(folders.getLastScanned("/elsewhere"), std::nullopt);
  EXPECT_THROW(folders.addFolder(""), VelorinDatabaseError);

  const DatabaseHandle nothing;
  EXPECT_TRUE(MusicFolders(nothing).getFolders().empty());
  EXPECT_TRUE(FolderBrowser(nothing).subfolders("/").empty());
  EXPECT_THROW(MusicFolders(nothing).addFolder("/m"), VelorinDatabaseError);
  EXPECT_THROW(FolderMove(nothing).migrateFolderPath("/m", "/n"), VelorinDatabaseError);
}

TEST(Folders, AMovedFolderTakesEachRowAlongOnce) {
  struct Case {
    const char* from;
    const char* to;
    Strings before;
    Strings after;
  };
  const std::vector<Case> cases = {
      {"/a", "/b", {"/a/1", "/a/s/2", "/ab/3", "/A/4"}, {"/b/1", "/b/s/2", "/ab/3", "/A/4"}},
      {"/a/", "/b/", {"/a/1"}, {"/b/1"}},
      {"/a", "/a", {"/a/1"}, {"/a/1"}},
      {"/a", "/a/b", {"/a/1", "/a/b/1", "/a/b/b/1"}, {"/a/b/1", "/a/b/b/1", "/a/b/b/b/1"}},
      {"/a/b", "/a", {"/a/b/1", "/a/b/b/1", "/a/2"}, {"/a/1", "/a/b/1", "/a/2"}},
      {"/", "/r", {"/1", "/r/2"}, {"/r/1", "/r/r/2"}},
      {"/r", "/", {"/r/1", "/r/r/2"}, {"/1", "/r/2"}},
      {"/100%_\\", "/\xFF", {"/100%_\\/1", "/100xy\\/2"}, {"/\xFF/1", "/100xy\\/2"}},
      {"/\xC3\x80\x80",
       "/n\n",
       {"/\xC3\x80\x80/\x80", "/\xC3\x80/2"},
       {"/n\n/\x80", "/\xC3\x80/2"}},
  };
  for (const Case& each : cases) {
    TestLibrary library;
    ProcessedCues cues(library.database());
    double time = 0;
    for (const std::string& path : each.before) {
      library.add({.path = path});
      cues.markCueProcessed(path, ++time);
    }
    const auto ids = library.column<std::int64_t>("SELECT id FROM tracks ORDER BY id");
    FolderMove(library.database()).migrateFolderPath(each.from, each.to);
    EXPECT_EQ(pathsIn(library), each.after) << each.from;
    EXPECT_EQ(library.column<std::int64_t>("SELECT id FROM tracks ORDER BY id"), ids);
    const auto sheets = cues.fetchProcessedCues();
    EXPECT_EQ(sheets.size(), each.after.size()) << each.from;
    for (std::size_t i = 0; i < each.after.size(); ++i) {
      EXPECT_EQ(sheets.at(each.after[i]), static_cast<double>(i + 1)) << each.from;
    }
  }
}

TEST(Folders, AFolderMovedOntoAnotherBecomesOneWithIt) {
  struct Case {
    std::optional<std::string> oldDate, newDate, merged;
  };
  const std::string early = "2020-01-01 00:00:00.000";
  const std::string late = "2021-01-01 00:00:00.000";
  for (const Case& each :
       {Case{early, late, early}, Case{late, early, early}, Case{std::nullopt, late, std::nullopt},
        Case{late, std::nullopt, std::nullopt}}) {
    TestLibrary library;
    for (const auto& [path, date] : {std::pair("/old", each.oldDate), {"/new", each.newDate}}) {
      library.run("INSERT INTO musicFolders (path, lastScanned) VALUES (?, ?)", path, date);
      library.add({.path = std::string(path) + "/1"});
      ProcessedCues(library.database()).markCueProcessed(std::string(path) + "/c", path[1]);
    }
    EXPECT_EQ(FolderMove(library.database()).migrateFolderPath("/old", "/new"), 1);
    EXPECT_EQ(MusicFolders(library.database()).getFolders(), Strings{"/new"});
    EXPECT_EQ(library.value<std::optional<std::string>>("SELECT lastScanned FROM musicFolders"),
              each.merged);
    EXPECT_EQ(pathsIn(library), (Strings{"/new/1", "/new/1"}));
    const std::unordered_map<std::string, double> sheets = {{"/new/c", 'o'}};
    EXPECT_EQ(ProcessedCues(library.database()).fetchProcessedCues(), sheets);
  }
}

TEST(Folders, TracksMoveInBoundedWrites) {
  TestLibrary library;
  const auto id = library.add({.path = "/old/0"});
  library.run(R"(
INSERT INTO tracks (title, duration, filePath, albumId, artistId)
WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 11999)
SELECT 't', 1, '/old/' || i, albumId, artistId FROM tracks, n WHERE id = ?)",
              id);
  const auto writes = [&] {
    return library.queue().read([&](sqlite::Reader& reader) {
      return library.queue().version(reader, static_cast<unsigned>(Facet::library)).own;
    });
  };
  const auto before = writes();
  EXPECT_EQ(FolderMove(library.database()).migrateFolderPath("/old", "/new"), 12'000);
  EXPECT_EQ(writes() - before, 3U);
  EXPECT_EQ(FolderBrowser(library.database()).folderSummary("/new").trackCount, 12'000);
  EXPECT_THROW(FolderMove(library.database()).migrateFolderPath("", "/x"), VelorinDatabaseError);
}

}  // namespace
}  // namespace velorin
