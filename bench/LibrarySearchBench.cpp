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
  std::vector<Took> first;
  for (int i = 0; i < 3; ++i) {
    const auto library = openQuietly(millionTracks());
    const DatabaseHandle database(library->dbQueue());
    LibrarySearch part(database);
    first.push_back(tookOf([&] { keep(search(part, texts()[1])); }));
  }
  addTook(report, "\"lov\", the first search of all", medianOf(first));

  const auto library = openQuietly(millionTracks());
  const DatabaseHandle database(library->dbQueue());
  LibrarySearch part(database);
  for (const Typed& typed : texts()) {
    std::size_t found = search(part, typed);
    addTook(report, fmt::format("\"{}\", {} rows", typed.text, found),
            medianOf(kRuns, [&] { keep(search(part, typed)); }), typed.target);
    addShell(report, fmt::format("\"{}\"", typed.text),
             fmt::format("SELECT rowid FROM tracks_fts WHERE tracks_fts MATCH '{}' "
                         "ORDER BY rank LIMIT {}",
                         typed.match, kPage));
  }
  addTook(report, "artists named like \"lov\"",
          medianOf(kRuns, [&] { keep(part.searchArtists("lov")); }));
  addShell(report, "artists",
           "SELECT * FROM artists WHERE name LIKE '%lov%' ESCAPE '\\' "
           "ORDER BY name COLLATE NOCASE");
});

}  // namespace
}  // namespace velorin::bench
