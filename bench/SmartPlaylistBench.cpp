// Smart playlists over a million tracks: the ids that the rules choose, and a list of 500.
#include "bench/LibraryFixture.h"
#include "library/queries/SmartPlaylists.h"

namespace velorin::bench {
namespace {

constexpr int kRuns = 3;

using Rules = std::vector<SmartPlaylistRules::Rule>;

void benchRules(BenchReport& report, const std::string& name, const SmartPlaylistRules& rules,
                const std::set<std::int64_t>& favourites = {}) {
  const auto library = openQuietly(millionTracks());
  const DatabaseHandle database(library->dbQueue());
  const SmartPlaylists playlists(database);
  addTook(report, name, medianOf(kRuns, [&] {
            keep(rules.limit ? playlists.fetchSmartPlaylistTracks(rules, favourites).size()
                             : playlists.fetchSmartPlaylistTrackIds(rules, favourites).size());
          }));
}

const Registration kSmartPlaylists("library smart playlists", [](BenchReport& report) {
  const SmartPlaylistRules::Rule nineties{"", RuleField::year, RuleOperator::between,
                                          NumberRange{1990, 1999}};
  const SmartPlaylistRules::Rule word{"", RuleField::title, RuleOperator::contains, "love"};
  const SmartPlaylistRules::Rule stale{"", RuleField::lastPlayedDaysAgo, RuleOperator::greaterThan,
                                       30.0};
  const SmartPlaylistRules::Rule favourite{"", RuleField::isFavourite, RuleOperator::isTrue, true};
  std::set<std::int64_t> favourites;
  for (std::int64_t id = 1; id < 100'000; id += 2) favourites.insert(favourites.end(), id);

  using enum MatchMode;
  benchRules(report, "ids of the nineties", {all, {nineties}, {}, {}, true});
  benchRules(report, "ids of a word in titles or the nineties",
             {any, {word, nineties}, {}, {}, true});
  benchRules(report, "500 not played for 30 days, by title",
             {all, {stale}, 500, SortField::title, true});
  benchRules(report, "500 of all, at random", {all, {}, 500, SortField::random, true});
  benchRules(report, "ids of 50,000 favourites", {all, {favourite}, {}, {}, true}, favourites);
});

}  // namespace
}  // namespace velorin::bench
