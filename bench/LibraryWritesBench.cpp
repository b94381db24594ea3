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

std::size_t countOf(const Batches& batches) {
  std::size_t tracks = 0;
  for (const auto& batch : batches) tracks += batch.size();
  return tracks;
}

Took importing(const DatabaseHandle& database, const Batches& batches) {
  LibraryImport import(database);
  return tookOf([&] {
    for (const auto& batch : batches) import.insertBatch(batch);
  });
}

void addRate(BenchReport& report, const std::string& name, std::size_t tracks,
             std::vector<Took> runs) {
  const auto rate = [&](double ms) { return 1000 * static_cast<double>(tracks) / ms; };
  const Took took = medianOf(std::move(runs));
  report.add(name, rate(took.wall), "tracks/s", atLeast(20'000));
  report.add("    of processor time", rate(took.processor), "tracks/s");
}

const Registration kImport("library import", [](BenchReport& report) {
  constexpr int kRuns = 3;
  const Batches many = newFiles(11, 50'000);
  std::vector<Took> empty;
  for (int i = 0; i < kRuns; ++i) {
    const BenchFolder folder;
    const auto library = openQuietly(folder / "library.sqlite");
    empty.push_back(importing(DatabaseHandle(library->dbQueue()), many));
  }
  addRate(report, "batches of 500, into an empty library", countOf(many), empty);

  const ScratchLibrary scratch;
  const auto library = openQuietly(scratch.file());
  const DatabaseHandle database(library->dbQueue());
  constexpr std::size_t kMore = 20'000;
  std::vector<Took> full;
  for (std::uint64_t seed = 21; seed < 21 + kRuns; ++seed) {
    full.push_back(importing(database, newFiles(seed, kMore)));
  }
  addRate(report, "batches of 500, into a million tracks", kMore, full);
});

const Registration kInventory("library inventory", [](BenchReport& report) {
  constexpr int kRuns = 3;
  addTook(report, "existing keys, cold", coldMedianOf(kRuns, [](DatabaseManager& library) {
            keep(library.inventory().existingKeys());
          }));
  addShell(report, "existing keys", "SELECT filePath, cueStartTime FROM tracks");
  addTook(report, "existing file sizes, cold", coldMedianOf(kRuns, [](DatabaseManager& library) {
            keep(library.inventory().existingFileSizes());
          }));
  addShell(report, "existing file sizes",
           "SELECT DISTINCT filePath, fileSize FROM tracks WHERE fileSize > 0");
});

const Registration kPlays("library plays", [](BenchReport& report) {
  constexpr int kPlayed = 500;
  const ScratchLibrary scratch;
  const auto library = openQuietly(scratch.file());
  const DatabaseHandle database(library->dbQueue());
  PlaybackHistory history(database);
  std::vector<Took> times;
  for (int i = 0; i < kPlayed; ++i) {
    const std::int64_t track = 1 + (i * 7919LL) % static_cast<std::int64_t>(kMillion);
    times.push_back(tookOf(
        [&] { history.recordPlay(track, std::chrono::system_clock::now(), 100, i % 10 == 0); }));
  }
  addTook(report, "a play recorded, median", medianOf(times));
  addTook(report, "a play recorded, worst of 500",
          *std::ranges::max_element(times, {}, &Took::wall));

  HomeStatistics home(database);
  keep(home.fetchHomeStats());
  history.recordPlay(1, std::chrono::system_clock::now(), 100, false);
  addTook(report, "home statistics after a play", tookOf([&] { keep(home.fetchHomeStats()); }));
});

}  // namespace
}  // namespace velorin::bench
