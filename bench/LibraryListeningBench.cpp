// What it costs that nothing the listener did is lost, on a million tracks most of which were
// played.
#include "bench/LibraryFixture.h"
#include "foundation/Preferences.h"
#include "library/listening/ListeningKeeper.h"
#include "library/queries/LibraryImport.h"
#include "library/queries/TrackRemoval.h"
#include "support/SyntheticLibrary.h"

namespace velorin::bench {
namespace {

constexpr std::size_t kBatch = 500;
constexpr std::size_t kReturning = 50'000;

std::int64_t count(DatabaseManager& library, const char* table) {
  return DatabaseHandle(library.dbQueue()).read([&](sqlite::Reader& reader) {
    return reader.first<std::int64_t>(fmt::format("SELECT COUNT(*) FROM {}", table)).value_or(0);
  });
}

/// The first tracks of the library, as a scan of their files would find them.
std::vector<std::vector<ScannedItem>> filesOf(DatabaseManager& library, std::size_t tracks) {
  std::vector<std::vector<ScannedItem>> batches;
  for (std::size_t at = 0; at < tracks; at += kBatch) {
    std::vector<std::int64_t> ids;
    for (std::size_t i = at; i < at + kBatch; ++i) ids.push_back(static_cast<std::int64_t>(i + 1));
    auto& batch = batches.emplace_back();
    for (const TrackInfo& info : library.tracks().fetchTracks(ids)) {
      ScannedItem& item = batch.emplace_back();
      item.artistName = info.artist.name;
      item.albumTitle = info.album.title;
      item.track = info.track;
      item.track.id.reset();
      item.track.totalPlays = item.track.totalSkips = 0;
      item.track.rating.reset();
      item.track.bookmarks.reset();
    }
  }
  return batches;
}

const Registration kListening("library listening", [](BenchReport& report) {
  const ScratchLibrary scratch;
  const auto library = openQuietly(scratch.file());
  const DatabaseHandle database(library->dbQueue());
  Preferences preferences;
  const ListeningKeeper keeper(database, preferences,
                               [](const std::string&) { return std::nullopt; });
  const auto files = filesOf(*library, kReturning);
  report.add("plays and skips in the history",
             static_cast<double>(count(*library, "playbackHistory")), "rows");

  const auto atOnce = [&] { return tookOf([&] { keeper.afterScan([] { return true; }); }); };
  addTook(report, "after a scan with nothing to look for, first", atOnce());
  addTook(report, "after a scan with nothing to look for, again", atOnce());

  addTook(report, "cleared for a full rescan", tookOf([&] { library->removal().clearForRescan(); }),
          atMost(5000));
  report.add("    tracks parked", static_cast<double>(count(*library, "departedTracks")), "tracks");

  LibraryImport& import = library->import();
  const Took took = tookOf([&] {
    for (const auto& batch : files) import.insertBatch(batch);
  });
  report.add("tracks that come back, in batches of 500",
             1000 * static_cast<double>(kReturning) / took.wall, "tracks/s");
  report.add("    of processor time", 1000 * static_cast<double>(kReturning) / took.processor,
             "tracks/s");

  std::vector<std::string> paths;
  for (const auto& batch : files) {
    for (const ScannedItem& item : batch) paths.push_back(item.track.filePath);
  }
  const Took removed = tookOf([&] { library->removal().deleteTracks(paths); });
  report.add("tracks that go, parked", 1000 * static_cast<double>(kReturning) / removed.wall,
             "tracks/s");
});

}  // namespace
}  // namespace velorin::bench
