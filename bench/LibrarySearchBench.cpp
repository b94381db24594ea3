// Finding tracks among a million while a listener types.
#include <fmt/format.h>

#include "bench/LibraryFixture.h"
#include "library/queries/LibrarySearch.h"

namespace velorin::bench {
namespace {

constexpr int kRuns = 7;
constexpr std::int64_t kPage = 500;

struct Typed {
  const char* text;
  const char* match;  ///< the same as a pattern of the told statement
  std::optional<Target> target;
};

// From one letter to a word of eight; "the" begins a word of every fifth track, which is the worst
// that three letters can do.
const std::vector<Typed>& texts() {
  static const std::vector<Typed> kTexts{{"l", "l*", {}},
                                         {"lov", "lov*", atMost(20)},
                                         {"the", "the*", atMost(20)},
                                         {"int", "int*", atMost(20)},
                                         {"interlud", "interlud*", atMost(20)},
                                         {"love the", "love* the*", {}},
                                         {"rena lov", "rena* lov*", {}}};
  return kTexts;
}

std::size_t search(LibrarySearch& part, const Typed& typed) {
  return part.searchTracks(typed.text, {}, {}, kPage).size();
}

const Registration kSearch("library search", [](BenchReport& report) {
  std::vector<double> first;
  for (int i = 0; i < 3; ++i) {
    const auto library = openQuietly(millionTracks());
    const DatabaseHandle database(library->dbQueue());
    LibrarySearch part(database);
    first.push_back(milliseconds([&] { keep(search(part, texts()[1])); }));
  }
  report.add("\"lov\", the first search of all", medianOf(first), "ms");

  const auto library = openQuietly(millionTracks());
  const DatabaseHandle database(library->dbQueue());
  LibrarySearch part(database);
  for (const Typed& typed : texts()) {
    std::size_t found = search(part, typed);
    report.add(fmt::format("\"{}\", {} rows", typed.text, found),
               medianMs(kRuns, [&] { keep(search(part, typed)); }), "ms", typed.target);
    addShell(report, fmt::format("\"{}\"", typed.text),
             fmt::format("SELECT rowid FROM tracks_fts WHERE tracks_fts MATCH '{}' "
                         "ORDER BY rank LIMIT {}",
                         typed.match, kPage));
  }
  report.add("artists named like \"lov\"",
             medianMs(kRuns, [&] { keep(part.searchArtists("lov")); }), "ms");
  addShell(report, "artists",
           "SELECT * FROM artists WHERE name LIKE '%lov%' ESCAPE '\\' "
           "ORDER BY name COLLATE NOCASE");
});

}  // namespace
}  // namespace velorin::bench
