#include "library/queries/SmartPlaylists.h"

#include <gtest/gtest.h>

#include "library/TestLibrary.h"
#include "library/queries/SmartPlaylistSQL.h"

namespace velorin {
namespace {

using Op = RuleOperator;
using F = RuleField;
using Rules = std::vector<SmartPlaylistRules::Rule>;

/// Five tracks, 1 to 5, in the order of their artists.
class SmartPlaylistsTest : public testing::Test {
 protected:
  SmartPlaylistsTest() {
    add({.title = "100% Pure", .artist = "Ada", .year = 1990, .genre = "Jazz"});
    add({.title = "100 Years_", .artist = "Bea", .year = 1999, .duration = 60, .genre = "jazz"});
    add({.title = "A\\B", .artist = "Cid", .year = 2001, .genre = "Rock"});
    add({.title = "Rest", .artist = "Dot", .genre = "ROCK"});
    add({.title = "élan", .artist = "Eve", .year = 1999});
    library.run(
        "INSERT INTO trackAnalysis (trackId, bpm, isVocal, analyzedAt) VALUES (1, 128, 1, ''), "
        "(2, 90, 0, '')");
    library.run(
        "INSERT INTO playbackHistory (trackId, playedAt) VALUES (1, datetime('now', '-40 days')), "
        "(1, datetime('now', '-2 days')), (2, datetime('now', '-31 days'))");
  }

  void add(const test::TrackRow& row) { library.add(row); }

  std::vector<std::int64_t> chosen(const SmartPlaylistRules& rules) {
    return test::idsOf(playlists.fetchSmartPlaylistTracks(rules, favourites));
  }
  std::vector<std::int64_t> chosen(Rules rules, MatchMode mode = MatchMode::all) {
    return chosen(SmartPlaylistRules{mode, std::move(rules), {}, {}, true});
  }

  test::TestLibrary library;
  SmartPlaylists playlists{library.database()};
  std::set<std::int64_t> favourites;
};

using Ids = std::vector<std::int64_t>;

TEST_F(SmartPlaylistsTest, EachRuleChoosesItsTracks) {
  const struct {
    F field;
    Op op;
    RuleValue value;
    Ids ids;
  } cases[] = {
      {F::title, Op::contains, "100%", {1}},
      {F::title, Op::contains, "S_", {2}},
      {F::title, Op::contains, "\\", {3}},
      {F::title, Op::contains, std::string("R\0x", 3), {}},
      {F::title, Op::contains, std::string(60'000, 'R'), {}},
      {F::title, Op::startsWith, "100", {1, 2}},
      {F::title, Op::endsWith, "PURE", {1}},
      {F::genre, Op::is, "rock", {3, 4}},
      {F::genre, Op::is, 5.0, {}},
      {F::genre, Op::isNot, true, {1, 2, 3, 4}},
      {F::artist, Op::is, "eVE", {5}},
      {F::year, Op::is, "1999", {2, 5}},
      {F::year, Op::between, NumberRange{1990, 1999}, {1, 2, 5}},
      {F::year, Op::between, NumberRange{1999, 1990}, {}},
      {F::duration, Op::lessThan, 180.0, {2}},
      {F::playCount, Op::equals, "text", {1, 2, 3, 4, 5}},
      {F::bpm, Op::greaterThan, 100.0, {1}},
      {F::lastPlayedDaysAgo, Op::greaterThan, 30.0, {2, 3, 4, 5}},
      {F::lastPlayedDaysAgo, Op::lessThan, 30.0, {1}},
      {F::isVocal, Op::isFalse, true, {2, 3, 4, 5}},
      {F::isVocal, Op::contains, "x", {2, 3, 4, 5}},
      {F::isFavourite, Op::isTrue, true, {}},
      {F::isFavourite, Op::isFalse, true, {1, 2, 3, 4, 5}},
      {F::title, Op::isTrue, true, {1, 2, 3, 4, 5}},
  };
  for (const auto& each : cases) {
    EXPECT_EQ(chosen({{"", each.field, each.op, each.value}}), each.ids)
        << rawValue(each.field) << " " << rawValue(each.op);
  }
}

TEST_F(SmartPlaylistsTest, RulesComeTogether) {
  const Rules genres{{"", F::genre, Op::is, "JAZZ"}, {"", F::genre, Op::is, "ROCK"}};
  EXPECT_EQ(chosen(genres), Ids{});
  EXPECT_EQ(chosen(genres, MatchMode::any), (Ids{1, 2, 3, 4}));
  const Rules numbers{{"", F::year, Op::is, "1990"}, {"", F::year, Op::is, "1999"}};
  EXPECT_EQ(chosen(numbers, MatchMode::any), (Ids{1, 2, 5}));
  const Rules dropped{{"", F::title, Op::isTrue, true}, {"", F::artist, Op::is, "ada"}};
  EXPECT_EQ(chosen(dropped, MatchMode::any), Ids{1});
  const Rules withAnalysis{{"", F::bpm, Op::lessThan, 100.0}, {"", F::year, Op::equals, 2001.0}};
  EXPECT_EQ(chosen(withAnalysis, MatchMode::any), (Ids{2, 3}));

  Rules many;
  for (int i = 0; i < 500; ++i) many.push_back({"", F::genre, Op::is, fmt::format("g{}", i)});
  many[300].value = "roCK";
  EXPECT_EQ(chosen(many, MatchMode::any), (Ids{3, 4}));
}

TEST_F(SmartPlaylistsTest, FavouritesAreThoseOfTheCaller) {
  const Rules wanted{{"", F::isFavourite, Op::isTrue, true},
                     {"", F::isFavourite, Op::isTrue, true}};
  const Rules others{{"", F::isFavourite, Op::isNot, true}};
  favourites = {4, 2};
  EXPECT_EQ(smartPlaylistSQL({MatchMode::all, wanted, {}, {}, true}, favourites).arguments,
            (sqlite::Values{std::int64_t{2}, std::int64_t{4}, std::int64_t{2}, std::int64_t{4}}));
  EXPECT_EQ(chosen(wanted), (Ids{2, 4}));
  EXPECT_EQ(chosen(others), (Ids{1, 3, 5}));
  // More than a statement can bind.
  for (std::int64_t id = 1000; id < 400'000; ++id) favourites.insert(favourites.end(), id);
  EXPECT_EQ(chosen(wanted), (Ids{2, 4}));
  EXPECT_EQ(chosen(others), (Ids{1, 3, 5}));
}

TEST_F(SmartPlaylistsTest, OrderAndLimit) {
  const auto sorted = [&](SortField field, bool ascending, std::int64_t limit) {
    return chosen(SmartPlaylistRules{MatchMode::all, {}, limit, field, ascending});
  };
  EXPECT_EQ(sorted(SortField::title, true, 2), (Ids{2, 1}));
  EXPECT_EQ(sorted(SortField::bpm, false, 2), (Ids{1, 2}));
  EXPECT_EQ(sorted(SortField::lastPlayed, false, 2), (Ids{1, 2}));
  EXPECT_EQ(sorted(SortField::duration, true, 1), Ids{2});
  EXPECT_EQ(sorted(SortField::artist, false, 0), (Ids{5, 4, 3, 2, 1}));
  EXPECT_EQ(sorted(SortField::artist, true, -1), (Ids{1, 2, 3, 4, 5}));

  // Two tracks of five: a hundred draws that never differ would be an accident of 20^-99.
  std::set<Ids> samples;
  for (int i = 0; i < 100; ++i) samples.insert(sorted(SortField::random, true, 2));
  EXPECT_GT(samples.size(), 1u);
  EXPECT_EQ(samples.begin()->size(), 2u);
}

}  // namespace
}  // namespace velorin
