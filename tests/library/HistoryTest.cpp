// The history against the plain statements that define its lists, over random libraries.

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <random>
#include <thread>

#include "foundation/Dates.h"
#include "foundation/EventBus.h"
#include "foundation/MainThread.h"
#include "library/TestLibrary.h"
#include "library/queries/PlaybackHistory.h"
#include "records/Events.h"

namespace velorin {
namespace {

using test::idsOf;
using test::TestLibrary;
using Ids = std::vector<std::int64_t>;

dates::TimePoint at(const char* text) {
  return *dates::fromText(text);
}

constexpr const char* kNow = "2025-04-20 12:00:00.500";

/// Plays from late February to kNow, so that the clocks change in between, no two at one moment.
void addPlays(TestLibrary& library, std::mt19937& random, int tracks, int plays) {
  for (int i = 0; i < tracks; ++i) {
    library.add({.title = std::to_string(i),
                 .album = "Album " + std::to_string(random() % 12),
                 .duration = static_cast<double>(random() % 400) + 0.25,
                 .lastModified = random() % 4 == 0
                                     ? std::nullopt
                                     : std::optional(dates::toText(
                                           at(kNow) - std::chrono::hours(random() % 9)))});
  }
  library.queue().write([&](sqlite::Writer& writer) {
    for (int i = 0; i < plays; ++i) {
      const auto before = std::chrono::milliseconds(random() % (55LL * 86'400'000 / plays)) +
                          std::chrono::milliseconds(i * (55LL * 86'400'000 / plays));
      // Low ids are played often, the last ones never.
      const auto track = 1 + random() % (1 + random() % static_cast<unsigned>(tracks - 5));
      writer.run("INSERT INTO playbackHistory (trackId, playedAt, skipped) VALUES (?, ?, ?)", track,
                 at(kNow) - before, random() % 5 == 0);
    }
  });
}

TEST(History, ListsAreThoseOfThePlainStatements) {
  std::mt19937 random(11);
  for (int round = 0; round < 4; ++round) {
    TestLibrary library;
    addPlays(library, random, 40, 300);
    const PlaybackHistory history(library.database());
    const auto now = at(kNow);
    const auto plain = [&](const char* sql, const auto&... arguments) {
      return library.column<std::int64_t>(sql, arguments...);
    };
    for (const int limit : {0, 1, 7, 1000, -1}) {
      SCOPED_TRACE(limit);
      EXPECT_EQ(idsOf(history.fetchHistory(limit, round)),
                plain("SELECT trackId FROM (SELECT trackId, playedAt FROM playbackHistory ORDER "
                      "BY playedAt DESC LIMIT ? OFFSET ?) ORDER BY playedAt ASC",
                      limit, round));
      EXPECT_EQ(idsOf(history.fetchRecentlyPlayed(limit)),
                plain("SELECT trackId FROM (SELECT trackId, MAX(playedAt) AS lastPlay FROM "
                      "playbackHistory GROUP BY trackId ORDER BY lastPlay DESC LIMIT ?)",
                      limit));
      EXPECT_EQ(idsOf(history.fetchUnplayed(limit)),
                plain("SELECT tracks.id FROM tracks WHERE tracks.id NOT IN (SELECT DISTINCT "
                      "trackId FROM playbackHistory WHERE skipped = 0) ORDER BY "
                      "tracks.lastModified DESC, tracks.id DESC LIMIT ?",
                      limit));
      for (const int days : {0, 1, 10, 40, 3000}) {
        SCOPED_TRACE(days);
        const std::string ago = fmt::format("-{} days", days);
        for (const int minPlays : {1, 3, 6}) {
          EXPECT_EQ(idsOf(history.fetchOnRepeat(days, minPlays, limit, now)),
                    plain("SELECT trackId FROM playbackHistory WHERE playedAt >= datetime(?, ?) "
                          "AND skipped = 0 GROUP BY trackId HAVING COUNT(*) >= ? ORDER BY COUNT(*) "
                          "DESC, trackId LIMIT ?",
                          now, ago, minPlays, limit));
          EXPECT_EQ(idsOf(history.fetchForgotten(days, minPlays, limit, now)),
                    plain("SELECT trackId FROM playbackHistory WHERE skipped = 0 GROUP BY trackId "
                          "HAVING COUNT(*) >= ? AND MAX(playedAt) < datetime(?, ?) ORDER BY "
                          "COUNT(*) DESC, trackId LIMIT ?",
                          minPlays, now, ago, limit));
        }
        Ids top;
        Ids counts;
        for (const TopTrack& track : history.fetchTopTracks(days, limit, now)) {
          top.push_back(*track.info.track.id);
          counts.push_back(track.plays);
        }
        EXPECT_EQ(top, idsOf(history.fetchMostPlayed(days, limit, now)));
        EXPECT_EQ(
            counts,
            plain("SELECT COUNT(*) AS plays FROM playbackHistory WHERE playedAt >= datetime(?, ?) "
                  "AND skipped = 0 GROUP BY trackId ORDER BY plays DESC, trackId LIMIT ?",
                  now, ago, limit));
      }
    }
  }
}

TEST(History, HoursAreThoseOfTheLocalClock) {
  std::mt19937 random(13);
  TestLibrary library;
  addPlays(library, random, 30, 4000);
  // A play a minute while Newfoundland went from 23 over 0 to 1 o'clock.
  for (int minute = 0; minute < 60; ++minute) {
    library.run("INSERT INTO playbackHistory (trackId, playedAt) VALUES (?, ?)", 1 + minute / 2,
                at("2025-03-09 03:00:59.999") + std::chrono::minutes(minute));
  }
  const PlaybackHistory history(library.database());
  const std::string hour = "CAST(strftime('%H', playedAt, 'localtime') AS INTEGER)";
  // The third changes its clocks within an hour of UTC, the fourth by half an hour.
  for (const char* zone : {"UTC0", "CET-1CEST,M3.5.0,M10.5.0/3", "NST3:30NDT,M3.2.0/0:01,M11.1.0",
                           "<+1030>-10:30<+11>-11,M10.1.0,M4.1.0", "<-12>12"}) {
    ::setenv("TZ", zone, 1);
    ::tzset();
    for (const auto& [from, to] : {std::pair{22, 6}, {6, 12}, {0, 23}, {23, 0}, {0, 1}, {18, 24}}) {
      SCOPED_TRACE(fmt::format("{} {} {}", zone, from, to));
      const std::string inside =
          fmt::format("({0} >= ? {1} {0} < ?) AND skipped = 0", hour, from < to ? "AND" : "OR");
      EXPECT_EQ(idsOf(history.fetchByHour(from, to, 20)),
                library.column<std::int64_t>(
                    "SELECT trackId FROM playbackHistory WHERE " + inside +
                        " GROUP BY trackId ORDER BY COUNT(*) DESC, trackId LIMIT ?",
                    from, to, 20));
      EXPECT_EQ(
          history.countByHour(from, to),
          library.value<std::int64_t>(
              "SELECT COUNT(DISTINCT trackId) FROM playbackHistory WHERE " + inside, from, to));
    }
    EXPECT_EQ(history.countByHour(9, 9), history.countByHour(0, 24)) << "the whole day";
  }
}

TEST(History, RecordingCountsAndTellsTheMainThread) {
  MainThread& main = MainThread::instance();
  TestLibrary library;
  EventBus events;
  PlaybackHistory history(library.database(), &events);
  const auto id = library.add({});
  std::vector<std::int64_t> rowsSeen;
  const auto subscription = events.subscribe<PlaybackHistoryDidUpdate>(
      Delivery::postersThread, [&](const PlaybackHistoryDidUpdate&) {
        EXPECT_TRUE(main.isCurrent());
        rowsSeen.push_back(library.value<std::int64_t>("SELECT COUNT(*) FROM playbackHistory"));
      });
  std::thread([&] {
    history.recordPlay(id, at("2025-01-01 10:00:00.250"), 12.5, false);
    history.recordPlay(id, at("2025-01-03 10:00:00.000"), -1, true);
    history.recordPlay(id, at("2025-01-02 10:00:00.000"), std::nan(""), false);
    EXPECT_THROW(history.recordPlay(id + 1, at("2025-01-02 10:00:00.000"), 1, false),
                 VelorinDatabaseError);
  }).join();
  EXPECT_TRUE(rowsSeen.empty());
  main.runReady();
  EXPECT_EQ(rowsSeen, (Ids{3, 3, 3}));

  history.setRating(id, 4);
  const Track track = history.fetchRecentlyPlayed(1).at(0).track;
  EXPECT_EQ(track.totalPlays, 2);
  EXPECT_EQ(track.totalSkips, 1);
  EXPECT_EQ(track.rating, 4);
  history.setRating(id, std::nullopt);
  EXPECT_EQ(history.fetchRecentlyPlayed(1).at(0).track.rating, std::nullopt);
  EXPECT_EQ(library.column<double>("SELECT duration FROM playbackHistory ORDER BY id"),
            (std::vector<double>{12.5, 0, 0}));

  Ids many(1200, id);
  many.push_back(id + 1);
  const auto stats = history.fetchPlayStats(many);
  ASSERT_EQ(stats.size(), 1U);
  EXPECT_EQ(stats.at(id), (TrackPlayStats{3, 1, at("2025-01-03 10:00:00.000")}));
}

}  // namespace
}  // namespace velorin
