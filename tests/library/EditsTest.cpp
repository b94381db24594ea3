// What is written to single tracks and albums, and what a scan asks the library for.

#include <gtest/gtest.h>

#include <set>

#include "library/TestLibrary.h"
#include "library/queries/AlbumArtwork.h"
#include "library/queries/LibraryInventory.h"
#include "library/queries/ProcessedCues.h"
#include "library/queries/TrackEdits.h"

namespace velorin {
namespace {

using test::TestLibrary;
using Text = std::optional<std::string>;

TEST(Edits, BookmarksAndLyrics) {
  TestLibrary library;
  TrackEdits edits(library.database());
  const auto id = library.add({});
  const auto column = [&](const char* name) {
    return library.value<Text>(std::string("SELECT ") + name + " FROM tracks WHERE id = ?", id);
  };
  const std::vector<TrackBookmark> bookmarks = {{"A-1", 1.5, "intro \"x\"", "red"},
                                                {"A-2", 9, std::nullopt, "blue"}};
  edits.updateBookmarks(id, bookmarks);
  EXPECT_EQ(bookmarksFromJSON(column("bookmarks").value()), bookmarks);
  edits.updateBookmarks(id, {});
  EXPECT_EQ(column("bookmarks"), std::nullopt);

  struct Case {
    Text lyrics, synced, expectedSynced;
  };
  for (const Case& each : {Case{"la", std::nullopt, std::nullopt}, Case{"la la", "[0]la", "[0]la"},
                           Case{std::nullopt, std::nullopt, "[0]la"}, Case{"", "", ""}}) {
    edits.updateLyrics(id, each.lyrics, each.synced);
    EXPECT_EQ(column("lyrics"), each.lyrics);
    EXPECT_EQ(column("syncedLyrics"), each.expectedSynced);
  }
  edits.updateLyrics(id + 1, "nobody", "nobody");
  EXPECT_THROW(TrackEdits(DatabaseHandle{}).updateLyrics(id, "la", {}), VelorinDatabaseError);
}

TEST(Edits, CoversAndTheirColours) {
  TestLibrary library;
  AlbumArtwork artwork(library.database());
  struct Case {
    std::vector<std::string> paths;
    std::string source;
  };
  const std::vector<Case> cases = {{{"/1.dsf", "/1.FLAC", "/1.mp3"}, "/1.FLAC"},
                                   {{"/2.wv", "/2.ape"}, "/2.wv"},
                                   {{"/3.opusx", "/3.aif"}, "/3.aif"},
                                   {{"/\xFF.caf"}, "/\xFF.caf"}};
  std::vector<AlbumArtwork::CoverSource> missing;
  for (std::size_t i = 0; i < cases.size(); ++i) {
    for (const auto& path : cases[i].paths) library.add({.album = std::to_string(i), .path = path});
    missing.push_back({library.value<std::int64_t>("SELECT MAX(id) FROM albums"), cases[i].source});
  }
  library.run("INSERT INTO albums (title, artistId) VALUES ('without tracks', 1)");
  EXPECT_EQ(artwork.albumsMissingArtwork(), missing);
  EXPECT_TRUE(artwork.albumsWithArtwork().empty());

  const std::int64_t covered = missing[1].albumId;
  artwork.updateAlbumArtwork(covered, "/cache/2.jpg");
  artwork.setAlbumAccentColor(covered, "#FF0000");
  missing.erase(missing.begin() + 1);
  EXPECT_EQ(artwork.albumsMissingArtwork(), missing);
  EXPECT_EQ(artwork.albumsWithArtwork(),
            (std::vector<AlbumArtwork::Cover>{{covered, "/cache/2.jpg"}}));
  EXPECT_EQ(artwork.albumArtworkPath(covered), "/cache/2.jpg");
  EXPECT_EQ(artwork.albumAccentColor(covered), "#FF0000");
  for (const std::int64_t id : {missing[0].albumId, std::int64_t{99}}) {
    EXPECT_EQ(artwork.albumArtworkPath(id), std::nullopt);
    EXPECT_EQ(artwork.albumAccentColor(id), std::nullopt);
  }
  artwork.updateAlbumArtwork(covered, std::nullopt);
  EXPECT_EQ(artwork.albumArtworkPath(covered), std::nullopt);
}

TEST(Edits, ProcessedCueSheets) {
  TestLibrary library;
  ProcessedCues cues(library.database());
  cues.markCueProcessed("/\xFF.cue", 1.25);
  cues.markCueProcessed("/b.cue", 2);
  cues.markCueProcessed("/\xFF.cue", 1700000000.123);
  const std::unordered_map<std::string, double> expected = {{"/\xFF.cue", 1700000000.123},
                                                            {"/b.cue", 2}};
  EXPECT_EQ(cues.fetchProcessedCues(), expected);
  cues.clearProcessedCues();
  EXPECT_TRUE(cues.fetchProcessedCues().empty());
}

TEST(Inventory, AKeyTellsAFileFromItsCueTracks) {
  struct Case {
    std::optional<double> start;
    std::string key;
  };
  for (const Case& each :
       {Case{std::nullopt, "/a.flac"}, Case{0.0, "/a.flac|0.0"}, Case{-0.0, "/a.flac|0.0"},
        Case{183.5, "/a.flac|183.5"}, Case{0.1 + 0.2, "/a.flac|0.30000000000000004"},
        Case{1e16, "/a.flac|10000000000000000.0"}, Case{1e-7, "/a.flac|0.0000001"}}) {
    EXPECT_EQ(libraryKey("/a.flac", each.start), each.key);
    TestLibrary library;
    const auto id = library.add({.path = "/a.flac", .cueStart = each.start});
    EXPECT_EQ(LibraryInventory(library.database()).existingKeys().find(each.key), id);
  }
  EXPECT_EQ(libraryKey("", 5e-324).size(), std::string_view("|0.").size() + 324);
}

TEST(Inventory, HoldsEachKeyAndSizeOnce) {
  TestLibrary library;
  const std::vector<std::string> paths = {"/m/a.flac", "/m/a|b.flac", "/m/A.flac", "/m/sub/a.flac",
                                          "/\xFF/\n",  "no folder",   "/",         "/m/a.flac"};
  std::int64_t size = -1;
  for (const std::string& path : paths) library.add({.path = path, .fileSize = size++});
  library.add({.path = "/m/a.flac", .fileSize = std::nullopt, .cueStart = 7});
  LibraryInventory inventory(library.database());

  const PathTable keys = inventory.existingKeys();
  EXPECT_EQ(keys.size(), paths.size());
  EXPECT_TRUE(keys.contains("/m/a.flac|7.0"));
  for (const char* absent : {"", "/m", "/m/", "/m/a", "/m/a.flac|7", "/m/a.flac|", "m/a.flac"}) {
    EXPECT_FALSE(keys.contains(absent)) << absent;
  }
  std::multiset<std::string> listed;
  keys.forEach([&](std::string_view path, std::int64_t) { listed.emplace(path); });
  EXPECT_EQ(listed, std::multiset<std::string>(paths.begin(), paths.end()));

  const PathTable sizes = inventory.existingFileSizes();
  EXPECT_EQ(sizes.size(), 6U);
  EXPECT_EQ(sizes.find("/m/A.flac"), 1);
  EXPECT_EQ(sizes.find("/m/a|b.flac"), std::nullopt);
  EXPECT_TRUE(LibraryInventory(DatabaseHandle{}).existingKeys().empty());
}

TEST(Inventory, ATableGrows) {
  PathTable table;
  const std::string deep(300'000, 'd');
  const auto key = [&](int i) {
    return "/" + std::to_string(i % 7) + (i % 1000 == 0 ? deep : "") + "/" + std::to_string(i);
  };
  for (int i = 0; i < 20'000; ++i) table.insert(key(i), false, i);
  for (int i = 0; i < 20'000; ++i) {
    table.insert(key(i), false, -1);
    ASSERT_EQ(table.find(key(i)), i);
  }
  EXPECT_EQ(table.size(), 20'000U);
  EXPECT_FALSE(table.contains(key(20'001)));
}

}  // namespace
}  // namespace velorin
