// What a scan and a listener write into a library, and what a scan reads first.
#include "bench/LibraryFixture.h"
#include "bench/MusicFile.h"
#include "library/queries/HomeStatistics.h"
#include "library/queries/LibraryImport.h"
#include "library/queries/LibraryInventory.h"
#include "library/queries/PlaybackHistory.h"
#include "support/SyntheticLibrary.h"

namespace velorin::bench {
namespace {

constexpr std::size_t kBatch = 500;

using Batches = std::vector<std::vector<ScannedItem>>;

Batches newFiles(std::uint64_t seed, std::size_t tracks) {
  Batches batches;
  test::SyntheticLibrary({.tracks = tracks, .seed = seed})
      .forEachBatch(kBatch, [&](const std::vector<ScannedItem>& batch) {
        batches.push_back(batch);
        // Another folder than that of the files that are there.
        for (ScannedItem& item : batches.back()) {
          item.track.filePath = "/new" + std::to_string(seed) + item.track.filePath;
        }
      });
  return batches;
}

double tracksPerSecond(LibraryImport& import, const Batches& batches) {
  std::size_t tracks = 0;
  for (const auto& batch : batches) tracks += batch.size();
  const double took = milliseconds([&] {
    for (const auto& batch : batches) import.insertBatch(batch);
  });
  return 1000 * static_cast<double>(tracks) / took;
}

const Registration kImport("library import", [](BenchReport& report) {
  constexpr int kRuns = 3;
  std::vector<double> empty;
  for (int i = 0; i < kRuns; ++i) {
    const BenchFolder folder;
    const auto library = openQuietly(folder / "library.sqlite");
    const DatabaseHandle database(library->dbQueue());
    LibraryImport import(database);
    empty.push_back(tracksPerSecond(import, newFiles(11, 50'000)));
  }
  report.add("batches of 500, into an empty library", medianOf(empty), "tracks/s", atLeast(20'000));

  const ScratchLibrary scratch;
  const auto library = openQuietly(scratch.file());
  const DatabaseHandle database(library->dbQueue());
  LibraryImport import(database);
  std::vector<double> full;
  for (std::uint64_t seed = 21; seed < 21 + kRuns; ++seed) {
    full.push_back(tracksPerSecond(import, newFiles(seed, 20'000)));
  }
  report.add("batches of 500, into a million tracks", medianOf(full), "tracks/s", atLeast(20'000));
});

const Registration kInventory("library inventory", [](BenchReport& report) {
  constexpr int kRuns = 3;
  report.add("existing keys, cold",
             coldMs(kRuns,
                    [](DatabaseManager& library) {
                      const DatabaseHandle database(library.dbQueue());
                      keep(LibraryInventory(database).existingKeys());
                    }),
             "ms");
  addShell(report, "existing keys", "SELECT filePath, cueStartTime FROM tracks");
  report.add("existing file sizes, cold",
             coldMs(kRuns,
                    [](DatabaseManager& library) {
                      const DatabaseHandle database(library.dbQueue());
                      keep(LibraryInventory(database).existingFileSizes());
                    }),
             "ms");
  addShell(report, "existing file sizes",
           "SELECT DISTINCT filePath, fileSize FROM tracks WHERE fileSize > 0");
});

const Registration kPlays("library plays", [](BenchReport& report) {
  constexpr int kPlayed = 500;
  const ScratchLibrary scratch;
  const auto library = openQuietly(scratch.file());
  const DatabaseHandle database(library->dbQueue());
  PlaybackHistory history(database);
  std::vector<double> times;
  for (int i = 0; i < kPlayed; ++i) {
    const std::int64_t track = 1 + (i * 7919LL) % static_cast<std::int64_t>(kMillion);
    times.push_back(milliseconds(
        [&] { history.recordPlay(track, std::chrono::system_clock::now(), 100, i % 10 == 0); }));
  }
  report.add("a play recorded, median", medianOf(times), "ms");
  report.add("a play recorded, worst of 500", *std::ranges::max_element(times), "ms");

  HomeStatistics home(database);
  keep(home.fetchHomeStats());
  history.recordPlay(1, std::chrono::system_clock::now(), 100, false);
  report.add("home statistics after a play", milliseconds([&] { keep(home.fetchHomeStats()); }),
             "ms");
});

}  // namespace
}  // namespace velorin::bench
