// Lists other than those of tracks, and the figures of the Home page, over a million tracks.
#include "bench/LibraryFixture.h"
#include "library/queries/AlbumListings.h"
#include "library/queries/ArtistListings.h"
#include "library/queries/CategoryListings.h"
#include "library/queries/HomeStatistics.h"
#include "library/queries/PlaybackHistory.h"
#include "library/queries/SortText.h"

namespace velorin::bench {
namespace {

constexpr int kRuns = 3;
constexpr std::int64_t kPage = 500;

/// The listing on a library that was just opened, then again, and a later page of it, through one
/// Part; fetch(part, offset).
template <class Part, class Fetch>
void benchPaged(BenchReport& report, const std::string& name, std::int64_t laterOffset,
                Fetch&& fetch) {
  std::vector<Took> first;
  std::vector<Took> again;
  std::vector<Took> later;
  for (int i = 0; i < kRuns; ++i) {
    const auto library = openQuietly(millionTracks());
    const DatabaseHandle database(library->dbQueue());
    Part part(database);
    first.push_back(tookOf([&] { keep(fetch(part, std::int64_t{0})); }));
    again.push_back(tookOf([&] { keep(fetch(part, std::int64_t{0})); }));
    later.push_back(tookOf([&] { keep(fetch(part, laterOffset)); }));
  }
  addTook(report, name + ", first page, cold", medianOf(first));
  addTook(report, "  first page again", medianOf(again));
  addTook(report, "  page at " + std::to_string(laterOffset), medianOf(later));
}

/// A fetch on a library that was just opened, and again.
template <class Part, class Fetch>
void benchWhole(BenchReport& report, const std::string& name, Fetch&& fetch) {
  std::vector<Took> first;
  std::vector<Took> again;
  for (int i = 0; i < kRuns; ++i) {
    const auto library = openQuietly(millionTracks());
    const DatabaseHandle database(library->dbQueue());
    Part part(database);
    first.push_back(tookOf([&] { keep(fetch(part)); }));
    again.push_back(tookOf([&] { keep(fetch(part)); }));
  }
  addTook(report, name + ", cold", medianOf(first));
  addTook(report, "  again", medianOf(again));
}

constexpr const char* kArtistStatement = R"(
SELECT a.*, COUNT(DISTINCT al.id) AS albumCount, COUNT(t.id) AS trackCount,
       COALESCE(SUM(t.duration), 0) AS totalDuration
FROM artists a
LEFT JOIN tracks t ON t.artistId = a.id
LEFT JOIN albums al ON al.id = t.albumId
GROUP BY a.id
HAVING trackCount > 0
ORDER BY )";

const Registration kArtists("library artists", [](BenchReport& report) {
  for (const auto column : {ArtistSortColumn::name, ArtistSortColumn::songCount}) {
    const ArtistSort sort{column, true};
    benchPaged<ArtistListings>(report, "artists by " + std::string(rawValue(column)), 10'000,
                               [&](ArtistListings& part, std::int64_t offset) {
                                 return part.fetchArtistInfos(sort, std::nullopt, kPage, offset);
                               });
    addShell(report, "first page", kArtistStatement + orderText(sort) + " LIMIT 500");
  }
});

constexpr const char* kAlbumStatement = R"(
SELECT albums.*, artists.id AS artistId, artists.name AS artistName, COUNT(t.id) AS trackCount,
       COALESCE(SUM(t.duration), 0) AS totalDuration, MAX(t.sampleRate) AS maxSampleRate,
       MAX(t.bitDepth) AS maxBitDepth
FROM albums
JOIN artists ON artists.id = albums.artistId
LEFT JOIN tracks t ON t.albumId = albums.id
GROUP BY albums.id
HAVING trackCount > 0
ORDER BY )";

const Registration kAlbums("library albums", [](BenchReport& report) {
  for (const auto column : {AlbumSortColumn::title, AlbumSortColumn::year}) {
    const AlbumSort sort{column, true};
    benchWhole<AlbumListings>(
        report, "all albums by " + std::string(rawValue(column)),
        [&](AlbumListings& part) { return part.fetchAlbumInfos(sort, std::nullopt); });
    addShell(report, "all albums", kAlbumStatement + orderText(sort));
  }
});

std::string categoryStatement(const std::string& column) {
  return "SELECT " + column +
         " AS name, COUNT(*) AS trackCount, COALESCE(SUM(duration), 0) AS totalDuration "
         "FROM tracks WHERE " +
         column + " IS NOT NULL AND " + column + " != '' GROUP BY " + column +
         " COLLATE NOCASE ORDER BY name COLLATE NOCASE ASC LIMIT 500";
}

const Registration kCategories("library categories", [](BenchReport& report) {
  const CategorySort sort{CategorySortColumn::name, true};
  benchPaged<CategoryListings>(report, "genres", 20,
                               [&](CategoryListings& part, std::int64_t offset) {
                                 return part.fetchGenreStats(sort, kPage, offset);
                               });
  addShell(report, "genres", categoryStatement("genre"));
  benchPaged<CategoryListings>(report, "composers", 5'000,
                               [&](CategoryListings& part, std::int64_t offset) {
                                 return part.fetchComposerStats(sort, kPage, offset);
                               });
  addShell(report, "composers", categoryStatement("composer"));
});

const Registration kHome("library home", [](BenchReport& report) {
  benchWhole<HomeStatistics>(report, "statistics",
                             [](HomeStatistics& part) { return part.fetchHomeStats(); });
  addShell(report, "totals",
           "SELECT COALESCE(SUM(duration), 0), COALESCE(SUM(fileSize), 0) FROM tracks");
  addShell(report, "quality",
           "SELECT COALESCE(format, ''), COALESCE(bitDepth, 0), COALESCE(sampleRate, 0), COUNT(*) "
           "FROM tracks GROUP BY format, bitDepth, sampleRate");
});

const Registration kHistory("library history", [](BenchReport& report) {
  benchWhole<PlaybackHistory>(report, "most played of 30 days",
                              [](PlaybackHistory& part) { return part.fetchMostPlayed(30, 50); });
  addShell(report, "most played of 30 days",
           "SELECT trackId FROM playbackHistory WHERE playedAt >= datetime('now', '-30 days') "
           "AND skipped = 0 GROUP BY trackId ORDER BY COUNT(*) DESC LIMIT 50");
  benchWhole<PlaybackHistory>(report, "forgotten",
                              [](PlaybackHistory& part) { return part.fetchForgotten(90, 5, 50); });
  addShell(report, "forgotten",
           "SELECT trackId FROM playbackHistory WHERE skipped = 0 GROUP BY trackId "
           "HAVING COUNT(*) >= 5 AND MAX(playedAt) < datetime('now', '-90 days') "
           "ORDER BY COUNT(*) DESC LIMIT 50");
  benchWhole<PlaybackHistory>(report, "recently played",
                              [](PlaybackHistory& part) { return part.fetchRecentlyPlayed(50); });
  addShell(report, "recently played",
           "SELECT trackId FROM (SELECT trackId, MAX(playedAt) AS lastPlay FROM playbackHistory "
           "GROUP BY trackId ORDER BY lastPlay DESC LIMIT 50)");
  benchWhole<PlaybackHistory>(report, "recent albums",
                              [](PlaybackHistory& part) { return part.fetchRecentAlbums(20); });
  addShell(report, "recent albums",
           "SELECT al.*, ar.id, ar.name, COUNT(t.id), COALESCE(SUM(t.duration), 0), "
           "MAX(t.id) AS maxTrackId FROM albums al JOIN artists ar ON ar.id = al.artistId "
           "JOIN tracks t ON t.albumId = al.id GROUP BY al.id ORDER BY maxTrackId DESC LIMIT 20");
});

}  // namespace
}  // namespace velorin::bench
