// What is written to single tracks and albums, and what a scan asks the library for.

#include <gtest/gtest.h>

#include <set>

#include "library/TestLibrary.h"
#include "library/queries/AlbumArtwork.h"
#include "library/queries/LibraryInventory.h"

namespace velorin {
namespace {

using test::TestLibrary;

TEST(Edits, CoversAndTheirColours) {
  TestLibrary library;
  AlbumArtwork artwork(library.database());
  struct Case {
    std::vector<std::string> paths;
    std::string source;
  };
  std::vector<AlbumArtwork::CoverSource> missing;
  for (const Case& each :
       {Case{{"/1.dsf", "/1.FLAC", "/1.mp3"}, "/1.FLAC"}, Case{{"/2.wv", "/2.ape"}, "/2.wv"},
        Case{{"/3.opusx", "/\xFF.aif"}, "/\xFF.aif"}}) {
    for (const auto& path : each.paths) library.add({.album = each.source, .path = path});
    missing.push_back({library.value<std::int64_t>("SELECT MAX(id) FROM albums"), each.source});
  }
  library.run("INSERT INTO albums (title, artistId) VALUES ('without tracks', 1)");
  EXPECT_EQ(artwork.albumsMissingArtwork(), missing);

  const std::int64_t album = missing.back().albumId;
  artwork.updateAlbumArtwork(album, "/cache/2.jpg");
  artwork.setAlbumAccentColor(album, "#FF0000");
  missing.pop_back();
  EXPECT_EQ(artwork.albumsMissingArtwork(), missing);
  EXPECT_EQ(artwork.albumsWithArtwork(),
            (std::vector<AlbumArtwork::Cover>{{album, "/cache/2.jpg"}}));
  EXPECT_EQ(artwork.albumAccentColor(missing[0].albumId), std::nullopt);
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
  const auto key = [&](int i) { return "/" + (i % 500 == 0 ? deep : "") + std::to_string(i); };
  for (int i = 0; i < 5000; ++i) table.insert(key(i), false, i);
  table.insert(key(7), false, -1);
  for (int i = 0; i < 5000; ++i) ASSERT_EQ(table.find(key(i)), i);
  EXPECT_EQ(table.size(), 5000U);
  EXPECT_FALSE(table.contains(key(5000)));
}

}  // namespace
}  // namespace velorin
