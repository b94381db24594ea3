// The made-up library that other tests and the benches trust.
#include <gtest/gtest.h>

#include <set>

#include "TestLibrary.h"
#include "support/SyntheticLibrary.h"

namespace velorin::test {
namespace {

TEST(SyntheticLibrary, IsTheSameEachTimeAndHoldsTogether) {
  using Kind = SyntheticSpec::Kind;
  for (const SyntheticSpec& spec : {SyntheticSpec{.tracks = 1234, .seed = 5},
                                    SyntheticSpec{.tracks = 777, .kind = Kind::awkward}}) {
    std::vector<Track> all;
    SyntheticLibrary(spec).forEachBatch(100, [&](const std::vector<ScannedItem>& batch) {
      EXPECT_TRUE(batch.size() == 100 || all.size() + batch.size() == spec.tracks);
      for (const ScannedItem& item : batch) all.push_back(item.track);
    });
    ASSERT_EQ(all.size(), spec.tracks);
    std::size_t at = 0;
    std::set<std::pair<std::string, std::optional<double>>> places;
    SyntheticLibrary(spec).forEachBatch(77, [&](const std::vector<ScannedItem>& batch) {
      for (const ScannedItem& item : batch) {
        EXPECT_EQ(item.track, all[at++]);
        places.emplace(item.track.filePath, item.track.cueStartTime);
      }
    });
    EXPECT_EQ(places.size(), spec.tracks) << "two tracks are in one place";

    TestLibrary library;
    SyntheticLibrary(spec).fill(library.database());
    const auto count = [&](const char* sql) { return library.value<std::int64_t>(sql); };
    EXPECT_EQ(count("SELECT COUNT(*) FROM tracks"), static_cast<std::int64_t>(spec.tracks));
    EXPECT_EQ(count("SELECT COUNT(*) FROM pragma_foreign_key_check()"), 0);
    EXPECT_EQ(count("SELECT COUNT(*) FROM playlists"), 20);
    EXPECT_EQ(count("SELECT COUNT(*) FROM playbackHistory"),
              count("SELECT SUM(totalPlays + totalSkips) FROM tracks"));
    EXPECT_EQ(count("SELECT COUNT(*) FROM tracks WHERE totalSkips != (SELECT COUNT(*) FROM "
                    "playbackHistory WHERE trackId = tracks.id AND skipped = 1)"),
              0);
    EXPECT_EQ(count("SELECT COUNT(*) FROM tracks JOIN artists ON artists.id = artistId "
                    "JOIN tracks_fts ON tracks_fts.rowid = tracks.id "
                    "WHERE tracks_fts.artistName != artists.name COLLATE NOCASE"),
              0);
  }
}

}  // namespace
}  // namespace velorin::test
