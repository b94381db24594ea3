// The figures of the Home page.

#include <gtest/gtest.h>

#include <random>

#include "library/TestLibrary.h"
#include "library/queries/HomeStatistics.h"

namespace velorin {
namespace {

using test::TestLibrary;
using Counts = std::vector<LabelledCount>;

Counts plainCounts(TestLibrary& library, const char* sql) {
  Counts counts;
  library.queue().read([&](sqlite::Reader& reader) {
    reader.each(sql, [&](const sqlite::Row& row) {
      counts.push_back({row.get<std::string>(0), row.get<std::int64_t>(1)});
    });
  });
  return counts;
}

TEST(HomeStatistics, FiguresAreThoseOfThePlainStatements) {
  std::mt19937 random(5);
  const auto maybe = [&](auto value) {
    return random() % 5 == 0 ? std::nullopt : std::optional(value);
  };
  for (int round = 0; round < 5; ++round) {
    TestLibrary library;
    for (int i = 0; i < 80; ++i) {
      constexpr std::array<const char*, 4> kFormats{"FLAC", "MP3", "flac", "DSD"};
      library.add({.duration = static_cast<double>(random() % 1000) / 8,
                   .format = maybe(std::string(kFormats[random() % kFormats.size()])),
                   .fileSize = maybe(static_cast<std::int64_t>(random())),
                   .lastModified = maybe(fmt::format("20{:02}-{:02}-31 23:59:59.999",
                                                     19 + random() % 3, random() % 2 * 6 + 1))});
    }
    const HomeStats stats = HomeStatistics(library.database()).fetchHomeStats();
    EXPECT_EQ(stats.totalDuration,
              library.value<double>("SELECT COALESCE(SUM(duration), 0) FROM tracks"));
    EXPECT_EQ(stats.totalSize,
              library.value<std::int64_t>("SELECT COALESCE(SUM(fileSize), 0) FROM tracks"));
    EXPECT_EQ(stats.formatCounts, plainCounts(library, R"(
SELECT COALESCE(format, 'Unknown') AS label, COUNT(*) AS count
FROM tracks GROUP BY tracks.format ORDER BY count DESC, label)"));
    Counts growth = stats.monthlyGrowth;
    std::erase_if(growth, [](const LabelledCount& month) { return month.count == 0; });
    EXPECT_EQ(growth, plainCounts(library, R"(
SELECT strftime('%Y-%m', lastModified) AS month, COUNT(*) AS count
FROM tracks WHERE lastModified IS NOT NULL GROUP BY month ORDER BY month)"));
  }
}

TEST(HomeStatistics, QualityIsOneOfFour) {
  struct Case {
    std::optional<std::string> format;
    std::optional<int> bitDepth, sampleRate;
    const char* label;
  };
  for (const Case& each : {
           Case{"Opus", std::nullopt, 192000, "Lossy"},
           Case{"ogg", 24, 96000, "Lossy"},
           Case{"MP3", std::nullopt, 44100, "Lossy"},
           Case{"aac", std::nullopt, std::nullopt, "Lossy"},
           Case{"FLAC", 16, 48000, "CD"},
           Case{"FLAC", 16, 48001, "Hi-Res"},
           Case{"FLAC", 16, 96000, "Hi-Res"},
           Case{"FLAC", 17, 44100, "Hi-Res"},
           Case{"dsf", 1, 2822400, "DSD"},
           Case{"DFF", std::nullopt, std::nullopt, "DSD"},
           Case{std::nullopt, std::nullopt, std::nullopt, "CD"},
       }) {
    TestLibrary library;
    library.add({.format = each.format, .sampleRate = each.sampleRate, .bitDepth = each.bitDepth});
    const auto stats = HomeStatistics(library.database()).fetchHomeStats();
    EXPECT_EQ(stats.qualityCounts, (Counts{{each.label, 1}})) << each.format.value_or("none");
  }
  TestLibrary library;
  for (const char* format : {"MP3", "DSD", "FLAC", "MP3"}) library.add({.format = format});
  library.add({.bitDepth = 24});
  EXPECT_EQ(HomeStatistics(library.database()).fetchHomeStats().qualityCounts,
            (Counts{{"Hi-Res", 1}, {"CD", 1}, {"DSD", 1}, {"Lossy", 2}}));
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
