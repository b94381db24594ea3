// Lists of albums, artists, genres and composers, and the counts of the focus bar.

#include <gtest/gtest.h>

#include <random>

#include "TestLibrary.h"
#include "foundation/Dates.h"
#include "library/queries/AlbumListings.h"
#include "library/queries/ArtistListings.h"
#include "library/queries/CategoryListings.h"
#include "library/queries/FocusCounts.h"
#include "library/queries/FocusSQL.h"
#include "library/queries/PlaybackHistory.h"
#include "library/queries/Playlists.h"
#include "library/queries/SortText.h"
#include "library/queries/TitleLookups.h"
#include "library/queries/TrackListings.h"
#include "library/rows/TrackRow.h"

namespace velorin {

namespace {

using test::TestLibrary;
using test::TrackRow;

const std::optional<FocusFilter> kNoFocus;

std::vector<std::string> titles(const std::vector<AlbumInfo>& infos) {
  std::vector<std::string> titles;
  for (const AlbumInfo& each : infos) titles.push_back(each.album.title);
  return titles;
}

TEST(Listings, AFocusNarrowsAlbumsToItsTracks) {
  TestLibrary library;
  AlbumListings albums(library.database());
  library.add({.title = "a", .album = "Both", .year = 1999, .duration = 10, .genre = "Jazz"});
  library.add({.title = "b",
               .album = "Both",
               .duration = 20,
               .genre = "Rock",
               .sampleRate = 96000,
               .bitDepth = 24});
  library.add({.title = "c", .artist = "Zoe", .album = "Rock_1", .genre = "rock"});
  library.run("INSERT INTO albums (title, artistId) SELECT 'Empty', MIN(id) FROM artists");

  const FocusFilter jazz{{{FocusCategory::genre, {{"JAZZ"}}}}};
  const auto focused = albums.fetchAlbumInfos({}, jazz);
  EXPECT_EQ(titles(focused), std::vector<std::string>{"Both"});
  EXPECT_EQ(focused[0].trackCount, 1);
  EXPECT_EQ(focused[0].maxSampleRate, 44100);

  // The name search takes wildcards for themselves, and albums without tracks as well.
  const auto search = [&](const std::string& text, const std::optional<FocusFilter>& focus) {
    return titles(albums.searchAlbums(text, {}, focus));
  };
  EXPECT_EQ(search("K_1", kNoFocus), std::vector<std::string>{"Rock_1"});
  EXPECT_EQ(search("R_ck", kNoFocus), std::vector<std::string>{});
  // What no title can hold finds nothing and is no error.
  EXPECT_EQ(search(std::string("Rock\0", 5), kNoFocus), std::vector<std::string>{});
  EXPECT_EQ(search(std::string(60'000, 'R'), kNoFocus), std::vector<std::string>{});
  EXPECT_EQ(search("artist", kNoFocus), (std::vector<std::string>{"Both", "Empty"}));
  EXPECT_EQ(search("artist", jazz), std::vector<std::string>{"Both"});
}

/// What the pages of the library show of a part of it, each by a call of its own.
TEST(Listings, PartsOfTheLibrary) {
  TestLibrary library;
  library.add({.title = "late", .artist = "A", .album = "Two", .year = 2001, .number = 2});
  library.add({.title = "early", .artist = "A", .album = "Two", .year = 2001, .number = 1});
  library.add({.title = "first", .artist = "A", .album = "One", .year = 1990});
  library.add({.title = "other", .artist = "B", .album = "Three"});
  TrackListings tracks(library.database());
  const AlbumListings albums(library.database());
  PlaybackHistory history(library.database());
  history.recordPlay(4, {}, 10, false);
  history.recordPlay(2, dates::TimePoint(std::chrono::hours(1)), 10, false);
  Playlists playlists(library.database());
  playlists.createPlaylist("List");
  playlists.addTracks(1, {4, 1});
  const TitleLookups names(library.database());
  using Ids = std::vector<std::int64_t>;
  using Map = std::unordered_map<std::int64_t, std::int64_t>;
  using Texts = std::vector<std::string>;
  using test::idsOf;
  EXPECT_EQ(idsOf(tracks.fetchTracksForAlbum(1)), (Ids{2, 1}));
  EXPECT_EQ(idsOf(tracks.fetchTracksForArtist(1)), (Ids{3, 2, 1}));
  EXPECT_EQ(idsOf(tracks.fetchTracksForArtist(1, 1, 1)), Ids{2});
  EXPECT_EQ(idsOf(tracks.fetchTracks({4, 77, 1, 4})), (Ids{4, 1, 4}));
  EXPECT_EQ(idsOf(tracks.fetchRecentlyAddedTracks({}, {}, 2)), (Ids{4, 3}));
  EXPECT_EQ(titles(albums.fetchAlbumInfosForArtist(1)), (Texts{"One", "Two"}));
  EXPECT_EQ(titles(history.fetchRecentAlbums(2)), (Texts{"Three", "One"}));
  EXPECT_EQ(titles(history.fetchRecentlyPlayedAlbums(5)), (Texts{"Two", "Three"}));
  const auto three = library.value<std::int64_t>("SELECT id FROM albums WHERE title = 'Three'");
  const auto b = library.value<std::int64_t>("SELECT id FROM artists WHERE name = 'B'");
  EXPECT_EQ(albums.fetchArtworkAlbumIds({b, 99}), (Map{{b, three}}));
  EXPECT_EQ(playlists.fetchFirstAlbums({1}), (Map{{1, three}}));
  const std::vector<std::optional<std::string>> found = {
      names.trackTitle(1), names.albumTitle(three), names.artistName(b), names.playlistName(1)};
  EXPECT_EQ(found, (std::vector<std::optional<std::string>>{"late", "Three", "B", "List"}));
  EXPECT_EQ(names.artistName(99), std::nullopt);
}

// What is kept and worked out apart equals, whatever happens to the library, what one statement
// would say of it.
class RandomLibrary {
 public:
  explicit RandomLibrary(unsigned seed) : _random(seed) {}

  DatabaseHandle& database() { return _library.database(); }

  int below(int end) { return std::uniform_int_distribution(0, end - 1)(_random); }
  bool maybe() { return below(2) == 0; }

  void change() {
    static const char* const kNames[] = {"abba", "Zappa", "ÄRZTE", "ärzte", "Bach", "b_ch", "Z"};
    static const std::optional<std::string> kGenres[] = {{},     "",     "rock", "Rock", "ROCK",
                                                         "Jazz", "jazz", "Éa",   "b"};
    switch (below(5)) {
      case 0:
        _library.run("DELETE FROM tracks WHERE id % 7 = ?", below(7));
        break;
      case 1:
        _library.run("UPDATE tracks SET genre = composer, duration = duration + 1 WHERE id = ?",
                     below(60));
        break;
      case 2:
        _library.run("UPDATE albums SET year = ? WHERE id = ?", 1990 + below(3), below(9));
        break;
      default:
        for (int i = below(20); i >= 0; --i) {
          _library.add({.title = "t",
                        .artist = kNames[below(7)],
                        .album = kNames[below(7)],
                        .albumArtist = maybe() ? kNames[below(7)] : "",
                        .year = maybe() ? std::optional(1990 + below(3)) : std::nullopt,
                        .duration = below(4000) / 4.0,
                        .genre = kGenres[below(9)],
                        .composer = kGenres[below(9)],
                        .format = kGenres[below(9)],
                        .sampleRate = maybe() ? std::optional(below(3) * 48000) : std::nullopt,
                        .bitDepth = maybe() ? std::optional(below(3) * 8) : std::nullopt});
        }
    }
  }

  std::optional<FocusFilter> focus() {
    if (maybe()) return std::nullopt;
    FocusFilter filter;
    if (maybe()) filter.rules[FocusCategory::genre] = {{"rock", "éa"}, maybe()};
    if (maybe()) filter.rules[FocusCategory::year] = {{"1990", "1992"}, maybe()};
    if (maybe()) filter.rules[FocusCategory::sampleRate] = {{"48000"}, maybe()};
    return filter;
  }

  template <class Sort>
  Sort sort(int columns) {
    return {static_cast<decltype(Sort::column)>(below(columns)), maybe()};
  }

  template <class Info, class Map, class... Arguments>
  std::vector<Info> plain(const std::string& sql, Map&& map, const Arguments&... arguments) {
    return database().read([&](sqlite::Reader& reader) {
      std::vector<Info> infos;
      reader.each(
          sql, [&](const sqlite::Row& row) { infos.push_back(map(row)); }, arguments...);
      return infos;
    });
  }

 private:
  std::mt19937 _random;
  TestLibrary _library;
};

SqlFragment fragmentOf(const std::optional<FocusFilter>& focus, const char* before) {
  auto fragment = focusSQL(focus);
  if (!fragment) return {};
  fragment->text = before + withAlias(fragment->text, "tracks", "t");
  return *fragment;
}

std::vector<ArtistInfo> plainArtists(RandomLibrary& library, const ArtistSort& sort,
                                     const std::optional<FocusFilter>& focus, int limit,
                                     int offset) {
  const SqlFragment filter = fragmentOf(focus, " WHERE ");
  return library.plain<ArtistInfo>(
      R"(SELECT a.*, COUNT(DISTINCT al.id) AS albumCount, COUNT(t.id) AS trackCount,
         COALESCE(SUM(t.duration), 0) AS totalDuration
         FROM artists a
         LEFT JOIN tracks t ON t.artistId = a.id
         LEFT JOIN albums al ON al.id = t.albumId)" +
          withAlias(filter.text, "albums", "al") +
          " GROUP BY a.id HAVING trackCount > 0 ORDER BY " + orderText(sort) + " LIMIT ? OFFSET ?",
      [](const sqlite::Row& row) {
        return ArtistInfo{{row.get<std::int64_t>(0), row.get<std::string>(1)},
                          row.get<int>(2),
                          row.get<int>(3),
                          row.get<double>(4)};
      },
      filter.arguments, limit, offset);
}

std::vector<AlbumInfo> plainAlbums(RandomLibrary& library, const AlbumSort& sort,
                                   const std::optional<FocusFilter>& focus) {
  const SqlFragment filter = fragmentOf(focus, " AND ");
  return library.plain<AlbumInfo>(
      "SELECT " + rows::kAlbumColumns + ", " + rows::kArtistColumns +
          R"(, COUNT(t.id) AS trackCount, COALESCE(SUM(t.duration), 0) AS totalDuration,
         MAX(t.sampleRate) AS maxSampleRate, MAX(t.bitDepth) AS maxBitDepth
         FROM albums JOIN artists ON artists.id = albums.artistId
         LEFT JOIN tracks t ON t.albumId = albums.id)" +
          filter.text + " GROUP BY albums.id HAVING trackCount > 0 ORDER BY " + orderText(sort),
      [](const sqlite::Row& row) {
        AlbumInfo info;
        sqlite::RowReader reader(row);
        reader >> info.album >> info.artist >> info.trackCount >> info.totalDuration >>
            info.maxSampleRate >> info.maxBitDepth;
        info.format = info.album.worstFormat;
        return info;
      },
      filter.arguments);
}

std::vector<CategoryInfo> plainStats(RandomLibrary& library, const std::string& column,
                                     const CategorySort& sort, int limit, int offset) {
  return library.plain<CategoryInfo>(
      "SELECT " + column +
          " AS name, COUNT(*) AS trackCount, COALESCE(SUM(duration), 0) AS totalDuration "
          "FROM tracks WHERE " +
          column + " IS NOT NULL AND " + column + " != '' GROUP BY " + column +
          " COLLATE NOCASE ORDER BY " + orderText(sort) + " LIMIT ? OFFSET ?",
      [](const sqlite::Row& row) {
        return CategoryInfo{row.get<std::string>(0), row.get<int>(1), row.get<double>(2)};
      },
      limit, offset);
}

std::vector<FocusCount> plainCounts(RandomLibrary& library, FocusCategory category) {
  static const char* const kStatements[] = {
      "SELECT genre, COUNT(*) AS cnt FROM tracks WHERE genre IS NOT NULL AND genre != '' "
      "GROUP BY genre COLLATE NOCASE ORDER BY genre COLLATE NOCASE",
      "SELECT albums.year, COUNT(*) AS cnt FROM tracks JOIN albums ON albums.id = tracks.albumId "
      "WHERE albums.year IS NOT NULL AND albums.year != 0 "
      "GROUP BY albums.year ORDER BY albums.year DESC",
      "SELECT format, COUNT(*) AS cnt FROM tracks WHERE format IS NOT NULL AND format != '' "
      "GROUP BY format COLLATE NOCASE ORDER BY format COLLATE NOCASE",
      "SELECT sampleRate, COUNT(*) AS cnt FROM tracks "
      "WHERE sampleRate IS NOT NULL AND sampleRate != 0 GROUP BY sampleRate ORDER BY sampleRate",
      "SELECT bitDepth, COUNT(*) AS cnt FROM tracks WHERE bitDepth IS NOT NULL AND bitDepth != 0 "
      "GROUP BY bitDepth ORDER BY bitDepth"};
  return library.plain<FocusCount>(
      kStatements[static_cast<int>(category)], [](const sqlite::Row& row) {
        return FocusCount{row.get<std::string>(0), row.get<std::int64_t>(1)};
      });
}

TEST(Listings, WhatIsKeptEqualsThePlainStatement) {
  RandomLibrary library(20'240);
  AlbumListings albums(library.database());
  ArtistListings artists(library.database());
  CategoryListings categories(library.database());
  FocusCounts counts(library.database());
  for (int i = 0; i < 400; ++i) {
    SCOPED_TRACE(i);
    if (library.below(4) == 0) library.change();
    const auto focus = library.focus();
    const int limit = library.below(8) - 1;
    const int offset = library.below(6) - 1;

    const auto artistSort = library.sort<ArtistSort>(3);
    ASSERT_EQ(artists.fetchArtistInfos(artistSort, focus, limit, offset),
              plainArtists(library, artistSort, focus, limit, offset));

    const auto albumSort = library.sort<AlbumSort>(3);
    ASSERT_EQ(albums.fetchAlbumInfos(albumSort, focus), plainAlbums(library, albumSort, focus));

    const auto sort = library.sort<CategorySort>(2);
    ASSERT_EQ(categories.fetchGenreStats(sort, limit, offset),
              plainStats(library, "genre", sort, limit, offset));
    ASSERT_EQ(categories.fetchComposerStats(sort, limit, offset),
              plainStats(library, "composer", sort, limit, offset));

    const auto category = static_cast<FocusCategory>(library.below(5));
    ASSERT_EQ(counts.fetchCounts(category), plainCounts(library, category));

    ASSERT_EQ(
        categories.fetchAllGenres(),
        library.plain<std::string>("SELECT DISTINCT genre FROM tracks WHERE genre IS NOT NULL "
                                   "ORDER BY genre COLLATE NOCASE",
                                   [](const sqlite::Row& row) { return row.get<std::string>(0); }));
  }
}

}  // namespace
}  // namespace velorin
