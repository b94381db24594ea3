// Music folders, browsing by folder, and folders that move.

#include <gtest/gtest.h>

#include <array>

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
const Strings kNames = {"Rock",         "Rock0",     "rock", "Rock!",    "Rock/x",
                        "100%",         "100_",      "a_b",  "axb",      "b\\s",
                        "n\nl",         "it's \"\"", "ünï",  "\xC3",     "\x80\xBFtail",
                        "\xF0\x9F\x8E", " ",         "|",    "\xFF\xFE", "\xC3\xA9\x80"};

Strings pathsOf(const std::vector<TrackInfo>& infos) {
  Strings paths;
  for (const TrackInfo& info : infos) paths.push_back(info.track.filePath);
  return paths;
}

Strings pathsIn(TestLibrary& library) {
  return library.column<std::string>("SELECT filePath FROM tracks ORDER BY id");
}

TEST(Folders, AFolderIsItselfToTheByte) {
  TestLibrary library;
  MusicFolders folders(library.database());
  FolderBrowser browser(library.database());
  Strings names = kNames;
  names.emplace_back(255, 'n');
  for (const std::string& name : names) {
    library.add({.path = "/m/" + name + "/a.flac", .duration = 10});
    library.add({.path = "/m/" + name + "/sub/b.flac", .duration = 20});
    folders.addFolder("/m/" + name);
  }
  const auto counts = folders.folderTrackCounts();
  for (const std::string& name : names) {
    const std::string path = "/m/" + name;
    const PathPrefix prefix(path);
    EXPECT_EQ(prefix.restPosition(),
              library.value<std::int64_t>("SELECT length(?) + 1", prefix.begin()));
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
  EXPECT_EQ(browser.subfolders("/m").size(), names.size() - 1);
  EXPECT_EQ(browser.subfolders("/"),
            (std::vector<Subfolder>{{"m", "/m/", 2 * static_cast<std::int64_t>(names.size())}}));
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
  for (const int offset : {0, 1, 14, 15, 99}) {
    const Strings rest(all.begin() + std::min(offset, 15), all.end());
    EXPECT_EQ(pathsOf(browser.fetchFolderTracks("/m", true, 5000, offset)), rest);
    const Strings two(rest.begin(), rest.begin() + std::min<int>(2, std::ssize(rest)));
    EXPECT_EQ(pathsOf(browser.fetchFolderTracks("/m", true, 2, offset)), two);
  }
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
  folders.addFolder("/m");  // is there: stays marked
  EXPECT_TRUE(folders.hasFolderNeedingFullScan());
  EXPECT_TRUE(folders.getLastScanned("/n").has_value());
  folders.updateLastScanned("/m");
  EXPECT_GE(folders.getLastScanned("/m/"), added);
  EXPECT_FALSE(folders.hasFolderNeedingFullScan());
  EXPECT_EQ(folders.getLastScanned("/elsewhere"), std::nullopt);
  EXPECT_THROW(folders.addFolder(""), VelorinDatabaseError);
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
      {"/a", "/a", {"/a/1"}, {"/a/1"}},
      {"/a", "/a/b", {"/a/1", "/a/b/1", "/a/b/b/1"}, {"/a/b/1", "/a/b/b/1", "/a/b/b/b/1"}},
      {"/a/b/", "/a/", {"/a/b/1", "/a/b/b/1", "/a/2"}, {"/a/1", "/a/b/1", "/a/2"}},
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
  using Date = std::optional<std::string>;
  const Date early = "2020-01-01 00:00:00.000";
  const Date late = "2021-01-01 00:00:00.000";
  for (const auto& [oldDate, newDate, merged] :
       {std::array{early, late, early}, {late, early, early}, {Date{}, late, {}}, {late, {}, {}}}) {
    TestLibrary library;
    library.run("INSERT INTO musicFolders (path, lastScanned) VALUES ('/old', ?), ('/new', ?)",
                oldDate, newDate);
    library.run("INSERT INTO processedCues VALUES ('/old/c', 1), ('/new/c', 2)");
    library.add({.path = "/old/1"});
    library.add({.path = "/new/1"});
    EXPECT_EQ(FolderMove(library.database()).migrateFolderPath("/old", "/new"), 1);
    EXPECT_EQ(MusicFolders(library.database()).getFolders(), Strings{"/new"});
    EXPECT_EQ(library.value<Date>("SELECT lastScanned FROM musicFolders"), merged);
    EXPECT_EQ(pathsIn(library), (Strings{"/new/1", "/new/1"}));
    EXPECT_EQ(library.column<double>("SELECT lastModified FROM processedCues"),
              std::vector<double>{1});
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
