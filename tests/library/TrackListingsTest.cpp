// Pages of tracks: whatever road a page takes, it is a piece of what the plain statement gives.

#include "library/queries/TrackListings.h"

#include <gtest/gtest.h>

#include <random>

#include "library/TestLibrary.h"
#include "library/queries/SortText.h"
#include "support/TemporaryFolder.h"

namespace velorin {
namespace {

using test::idsOf;
using test::TestLibrary;

constexpr std::array kColumns{
    TrackSortColumn::title,    TrackSortColumn::artist, TrackSortColumn::album,
    TrackSortColumn::composer, TrackSortColumn::genre,  TrackSortColumn::year,
    TrackSortColumn::duration, TrackSortColumn::format, TrackSortColumn::sampleRate,
    TrackSortColumn::rating,   TrackSortColumn::plays};

class Dice {
 public:
  explicit Dice(unsigned seed) : _random(seed) {}

  int below(int limit) { return static_cast<int>(_random() % static_cast<unsigned>(limit)); }
  template <class T>
  const T& oneOf(const std::vector<T>& values) {
    return values[static_cast<std::size_t>(below(static_cast<int>(values.size())))];
  }

 private:
  std::mt19937 _random;
};

using MaybeText = std::optional<std::string>;
using MaybeInt = std::optional<int>;

// Few values, so that every tie-break has work: names that differ in case, in what lies beyond
// ASCII, in the ninth byte, by being a beginning of another, or not at all.
const std::vector<std::string> kNames{"a",  "A1",       "a1",        "b",          "Éa",
                                      "éa", "abcdefgh", "ABCDEFGHi", "abcdefghJ",  "abcdefghj",
                                      "",   "_",        "[",         "z\U0001F3B5"};

test::TrackRow randomTrack(Dice& dice, int number) {
  test::TrackRow row;
  row.title = dice.oneOf(kNames);
  row.artist = dice.oneOf(kNames);
  row.albumArtist = dice.oneOf(kNames);
  row.album = dice.oneOf(kNames);
  row.path = "/m/" + std::to_string(number);
  row.year = dice.oneOf<MaybeInt>({{}, 0, 1999, 2000, -5});
  row.disc = dice.oneOf<MaybeInt>({{}, 0, 1, 2, -1});
  row.number = dice.oneOf<MaybeInt>({{}, 0, 1, 99});
  row.duration = dice.oneOf<double>({0.0, -0.0, 1.5, 180.25, 1e9});
  row.genre = dice.oneOf<MaybeText>({{}, "", "Rock", "rock", "Jazz", "Ünique", "ünique"});
  row.composer = dice.oneOf<MaybeText>({{}, "", "Bach", "BACH"});
  row.format = dice.oneOf<MaybeText>({{}, "FLAC", "flac", "DSD"});
  row.sampleRate = dice.oneOf<MaybeInt>({{}, 0, 44100, 2822400});
  row.bitDepth = dice.oneOf<MaybeInt>({{}, 1, 16, 24});
  row.cueStart = dice.oneOf<std::optional<double>>({{}, 0.0, 12.5});
  return row;
}

std::optional<FocusFilter> randomFocus(Dice& dice) {
  FocusFilter focus;
  const auto maybe = [&](FocusCategory category, const std::vector<std::string>& values) {
    if (dice.below(3) != 0) return;
    FocusRule& rule = focus.rules[category];
    rule.inverted = dice.below(2) == 0;
    for (int i = dice.below(3); i > 0; --i) rule.values.insert(dice.oneOf(values));
  };
  maybe(FocusCategory::genre, {"Rock", "jazz", "nothing"});
  maybe(FocusCategory::year, {"0", "1999"});
  maybe(FocusCategory::format, {"FLAC"});
  maybe(FocusCategory::bitDepth, {"16", "1"});
  if (dice.below(4) == 0) return std::nullopt;
  return focus;
}

/// The listing as one statement of SQLite's: the ids of all its rows.
std::vector<std::int64_t> plainIds(TestLibrary& library, const std::optional<TrackSort>& sort,
                                   const std::optional<FocusFilter>& focus,
                                   const MaybeText& genre) {
  std::string sql =
      "SELECT tracks.id FROM tracks JOIN albums ON albums.id = tracks.albumId "
      "JOIN artists ON artists.id = tracks.artistId WHERE 1";
  sqlite::Values arguments;
  if (genre) {
    sql += " AND tracks.genre = ? COLLATE NOCASE";
    arguments.emplace_back(*genre);
  }
  if (const auto filter = focus ? focusSQL(*focus) : std::nullopt) {
    sql += " AND " + filter->text;
    arguments.insert(arguments.end(), filter->arguments.begin(), filter->arguments.end());
  }
  sql += " ORDER BY " + (sort ? orderText(*sort) + ", tracks.id" : "tracks.id DESC");
  return library.column<std::int64_t>(sql, arguments);
}

void changeSomething(TestLibrary& library, Dice& dice) {
  const int id = 1 + dice.below(300);
  switch (dice.below(6)) {
    case 0:
      library.run("UPDATE tracks SET totalPlays = totalPlays + 1 WHERE id = ?", id);
      break;
    case 1:
      library.run("UPDATE tracks SET rating = ? WHERE id = ?", dice.below(6), id);
      break;
    case 2:
      library.run("UPDATE tracks SET title = ? WHERE id = ?", dice.oneOf(kNames), id);
      break;
    case 3:
      library.run("UPDATE OR IGNORE artists SET name = ? WHERE id = ?", dice.oneOf(kNames),
                  1 + dice.below(10));
      break;
    case 4:
      library.run("DELETE FROM tracks WHERE id = ?", id);
      break;
    default:
      library.run("UPDATE albums SET year = ? WHERE id = ?", dice.below(3), 1 + dice.below(40));
  }
}

TEST(TrackListings, EveryPageIsAPieceOfThePlainListing) {
  for (unsigned seed = 1; seed <= 12; ++seed) {
    Dice dice(seed);
    TestLibrary library;
    const int count = seed == 1 ? 0 : 1 + dice.below(400);
    for (int i = 0; i < count; ++i) library.add(randomTrack(dice, i));
    library.run("UPDATE tracks SET rating = id % 4 WHERE id % 3 = 0");
    library.run("UPDATE tracks SET totalPlays = id % 5");
    // An id beyond 32 bits, and a gap before it.
    library.run("UPDATE tracks SET id = 5000000000 WHERE id = 7");

    TrackListings listings(library.database());
    for (int round = 0; round < 60; ++round) {
      SCOPED_TRACE("seed " + std::to_string(seed) + ", round " + std::to_string(round));
      std::optional<TrackSort> sort;
      if (dice.below(8) != 0) {
        sort = TrackSort{kColumns[static_cast<std::size_t>(dice.below(11))], dice.below(2) == 0};
      }
      const auto focus = randomFocus(dice);
      const MaybeText genre = dice.oneOf<MaybeText>({{}, {}, "ROCK", "ünique", "none"});
      const auto fetch = [&](std::int64_t limit, std::int64_t offset) {
        return idsOf(
            genre ? listings.fetchTracks(TrackCategory::genre, *genre, sort, focus, limit, offset)
                  : listings.fetchTracks(sort, focus, limit, offset));
      };
      const auto all = plainIds(library, sort, focus, genre);
      const auto piece = [&](std::size_t limit, std::size_t offset) {
        const auto from = std::min(offset, all.size());
        const auto to = from + std::min(limit, all.size() - from);
        return std::vector(all.begin() + static_cast<std::ptrdiff_t>(from),
                           all.begin() + static_cast<std::ptrdiff_t>(to));
      };
      // The plain road, the one that makes the order, and the one that finds it.
      EXPECT_EQ(fetch(10, 3), piece(10, 3));
      EXPECT_EQ(fetch(-1, 0), all);
      const auto offset = static_cast<std::size_t>(dice.below(450));
      EXPECT_EQ(fetch(25, static_cast<std::int64_t>(offset)), piece(25, offset));
      if (HasFailure()) return;
      changeSomething(library, dice);
      const auto changed = plainIds(library, sort, focus, genre);
      EXPECT_EQ(fetch(-1, 0), changed) << "a change was missed";
    }
  }
}

TEST(TrackListings, AChangeByAnotherConnectionIsSeen) {
  const test::TemporaryFolder folder;
  const auto queue = std::make_shared<ConnectionQueue>(folder / "library.sqlite");
  queue->withConnection([](sqlite::Connection& connection) { schema::migrate(connection); });
  const DatabaseHandle database(queue);
  TrackListings listings(database);
  ConnectionQueue other(folder / "library.sqlite");
  other.write([](sqlite::Writer& writer) {
    writer.run("INSERT INTO artists (name) VALUES ('a')");
    writer.run("INSERT INTO albums (title, artistId) VALUES ('b', 1)");
  });
  for (const std::string title : {"x", "b", "a"}) {
    other.write([&](sqlite::Writer& writer) {
      writer.run(
          "INSERT INTO tracks (title, duration, filePath, albumId, artistId) "
          "VALUES (?, 1, '/x', 1, 1)",
          title);
    });
    EXPECT_EQ(listings.fetchTracks(TrackSort{}, {}, -1).front().track.title, title);
  }
}

}  // namespace
}  // namespace velorin
