// Opening a library of a million tracks, and its track lists.
#include <fcntl.h>
#include <malloc.h>
#include <unistd.h>

#include <cstdio>

#include "bench/LibraryFixture.h"
#include "bench/Memory.h"
#include "library/queries/SortText.h"

namespace velorin::bench {
namespace {

constexpr int kRuns = 5;
constexpr std::int64_t kPage = 500;
constexpr std::int64_t kDeep = 500'000;

constexpr std::array kColumns = {
    TrackSortColumn::title,    TrackSortColumn::artist, TrackSortColumn::album,
    TrackSortColumn::composer, TrackSortColumn::genre,  TrackSortColumn::year,
    TrackSortColumn::duration, TrackSortColumn::format, TrackSortColumn::sampleRate,
    TrackSortColumn::rating,   TrackSortColumn::plays};

std::string plainListing(const TrackSort& sort, std::int64_t offset) {
  return "SELECT tracks.*, albums.*, artists.* FROM tracks "
         "JOIN albums ON albums.id = tracks.albumId JOIN artists ON artists.id = tracks.artistId "
         "ORDER BY " +
         orderText(sort) + " LIMIT " + std::to_string(kPage) + " OFFSET " + std::to_string(offset);
}

void require(std::size_t rows, std::int64_t wanted) {
  if (rows != static_cast<std::size_t>(wanted)) throw std::runtime_error("a page is not whole");
}

void fetchPage(DatabaseManager& library, const std::optional<TrackSort>& sort,
               std::int64_t offset) {
  require(library.tracks().fetchTracks(sort, std::nullopt, kPage, offset).size(), kPage);
}

/// Takes the file out of the machine's page cache, as after a restart.
void dropFromMemory(const std::filesystem::path& file) {
  const int descriptor = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
  ::fdatasync(descriptor);
  ::posix_fadvise(descriptor, 0, 0, POSIX_FADV_DONTNEED);
  ::close(descriptor);
}

const Registration kOpen("library open", [](BenchReport& report) {
  const auto& file = millionTracks();
  addTook(report, "opened and found up to date", medianOf(kRuns, [&] { openQuietly(file); }),
          atMost(100));
  dropFromMemory(file);
  addTook(report, "the same, file not in memory", tookOf([&] { openQuietly(file); }));
});

void benchSort(BenchReport& report, TrackSortColumn column) {
  const TrackSort sort{column, true};
  const std::string name = "tracks by " + std::string(rawValue(column));
  addTook(report, name + ", first page, cold",
          coldMedianOf(kRuns, [&](DatabaseManager& library) { fetchPage(library, sort, 0); }),
          atMost(400));
  const auto library = openQuietly(millionTracks());
  fetchPage(*library, sort, 0);
  addTook(report, "  the next page at once", tookOf([&] { fetchPage(*library, sort, kPage); }));
  addTook(report, "  until the whole order is ready",
          tookOf([&] { library->tracks().waitUntilPrepared(); }));
  addTook(report, "  first page, sorted before",
          medianOf(kRuns, [&] { fetchPage(*library, sort, 0); }), atMost(20));
  addTook(report, "  page at 500,000", medianOf(kRuns, [&] { fetchPage(*library, sort, kDeep); }),
          atMost(100));
  addShell(report, "first page", plainListing(sort, 0));
}

const Registration kTracks("library tracks", [](BenchReport& report) {
  addTook(report, "tracks newest first, first page, cold",
          coldMedianOf(kRuns, [](DatabaseManager& library) { fetchPage(library, {}, 0); }),
          atMost(400));
  for (const TrackSortColumn column : kColumns) benchSort(report, column);

  const TrackSort byTitle{TrackSortColumn::title, true};
  addTook(report, "tracks by title, page at 500,000, cold",
          coldMedianOf(1, [&](DatabaseManager& library) { fetchPage(library, byTitle, kDeep); }));
  addShell(report, "page at 500,000", plainListing(byTitle, kDeep));
  const auto library = openQuietly(millionTracks());
  dropFromMemory(millionTracks());
  addTook(report, "tracks by title, first page, cold, file not in memory",
          tookOf([&] { fetchPage(*library, byTitle, 0); }));
});

// Anonymous memory is what the program holds; the mapped part of the file belongs to the page cache
// and goes when others need room.
const Registration kMemory("library memory", [](BenchReport& report) {
  millionTracks();
  ::malloc_trim(0);
  const double before = statusMB("RssAnon");
  const PeakWatch watch;
  const auto library = openQuietly(millionTracks());
  report.add("after opening", statusMB("RssAnon") - before, "MB");
  for (const auto column : {TrackSortColumn::artist, TrackSortColumn::title}) {
    fetchPage(*library, TrackSort{column, true}, 0);
    library->tracks().waitUntilPrepared();
    fetchPage(*library, TrackSort{column, true}, kDeep);
    ::malloc_trim(0);
    report.add("after browsing tracks by " + std::string(rawValue(column)),
               statusMB("RssAnon") - before, "MB");
  }
  report.add("peak", watch.peakMB() - before, "MB");
  report.add("pages of the file that are mapped", statusMB("RssFile"), "MB");
  report.add("VmHWM of the whole run", statusMB("VmHWM"), "MB");
});

}  // namespace
}  // namespace velorin::bench
