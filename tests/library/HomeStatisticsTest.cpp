// The figures of the Home page.

#include <gtest/gtest.h>

#include "library/TestLibrary.h"
#include "library/queries/HomeStatistics.h"

namespace velorin {
namespace {

using test::TestLibrary;
using Counts = std::vector<LabelledCount>;

TEST(HomeStatistics, QualityIsOneOfFour) {
  struct Case {
    std::optional<std::string> format;
    std::optional<int> bitDepth, sampleRate;
    const char* label;
  };
  for (const Case& each : {
           Case{"Opus", std::nullopt, 192000, "Lossy"},
           Case{"aac", std::nullopt, std::nullopt, "Lossy"},
           Case{"FLAC", 16, 48000, "CD"},
           Case{"FLAC", 16, 48001, "Hi-Res"},
           Case{"FLAC", 17, 44100, "Hi-Res"},
           Case{"dsf", 1, 2822400, "DSD"},
           Case{std::nullopt, std::nullopt, std::nullopt, "CD"},
       }) {
    TestLibrary library;
    library.add({.format = each.format, .sampleRate = each.sampleRate, .bitDepth = each.bitDepth});
    const auto stats = HomeStatistics(library.database()).fetchHomeStats();
    EXPECT_EQ(stats.qualityCounts, (Counts{{each.label, 1}})) << each.format.value_or("none");
  }
}

TEST(HomeStatistics, GrowthHasNoGapsAndFollowsTheLibrary) {
  TestLibrary library;
  HomeStatistics statistics(library.database());
  const auto growth = [&] { return statistics.fetchHomeStats().monthlyGrowth; };
  library.add({});
  EXPECT_EQ(growth(), Counts{});
  for (const char* moment :
       {"2023-11-30 23:59:59.999", "2024-02-01 00:00:00.000", "2024-99-01", "soon", ""}) {
    library.add({.lastModified = moment});
  }
  const Counts expected{{"2023-11", 1}, {"2023-12", 0}, {"2024-01", 0}, {"2024-02", 1}};
  EXPECT_EQ(growth(), expected);
  EXPECT_EQ(growth(), expected);
  library.run("DELETE FROM tracks WHERE lastModified >= '2024-01'");
  EXPECT_EQ(growth(), (Counts{{"2023-11", 1}}));
  library.run("UPDATE tracks SET format = NULL, duration = 0.25, fileSize = NULL WHERE id < 3");
  const HomeStats stats = statistics.fetchHomeStats();
  EXPECT_EQ(stats.formatCounts, (Counts{{"Unknown", 2}, {"FLAC", 1}}));
  EXPECT_EQ(stats.totalDuration, 180.5);
  EXPECT_EQ(stats.totalSize, 30'000'000);

  // Another database, with as many changes behind it, is another library.
  TestLibrary one;
  TestLibrary other;
  one.add({.duration = 1});
  other.add({.duration = 2});
  DatabaseHandle handle(one.database().dbQueue());
  HomeStatistics moved(handle);
  EXPECT_EQ(moved.fetchHomeStats().totalDuration, 1);
  handle.setDbQueue(other.database().dbQueue());
  EXPECT_EQ(moved.fetchHomeStats().totalDuration, 2);
  handle.setDbQueue(nullptr);
  EXPECT_EQ(moved.fetchHomeStats(), HomeStats{});
}

}  // namespace
}  // namespace velorin
