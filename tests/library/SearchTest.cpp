// Searches against FTS5's own statements, over libraries with a history.
#include <gtest/gtest.h>

#include <random>
#include <thread>

#include "library/TestLibrary.h"
#include "library/queries/LibrarySearch.h"
#include "library/search/FtsSegments.h"
#include "library/search/PrefixMatches.h"

namespace velorin {
namespace {

using test::idsOf;
using test::TestLibrary;
using Ids = std::vector<std::int64_t>;

TEST(SearchPattern, TakesTextAsWordsOnly) {
  struct Case {
    std::string text;
    std::string match;
    std::optional<std::vector<std::string>> prefixes;
  };
  const std::vector<std::string> none;
  for (const Case& each : {
           Case{"pink flo", "pink* flo*", {{"pink", "flo"}}},
           Case{"", "", none},
           Case{"\"' ()*^:-+{}.,;?%_\\", "", none},
           Case{"a AND b OR NOT c NEAR(d, 2)",
                "a* and* b* or* not* c* near* d* 2*",
                {{"a", "and", "b", "or", "not", "c", "near", "d", "2"}}},
           Case{"title:x ^y \"z", "title* x* y* z*", {{"titl", "x", "y", "z"}}},
           Case{std::string("a\0b", 3), "a* b*", {{"a", "b"}}},
           Case{"rock-n-roll's", "rock* n* roll* s*", {{"rock", "n", "roll", "s"}}},
           Case{"Björk ÅNGSTRÖM", "bjÖrk", {}},
           Case{"Кино 椎名 عمرو", "Кино* 椎名* عمرو*", {{"кино", "椎名", "عمرو"}}},
           Case{"e\xcc\x81tude", "e\xcc\x81tude*", {{"etud"}}},
           Case{"don’t", "don’t*", std::nullopt},
           Case{"🎵", "🎵*", none},
       }) {
    const SearchPattern pattern(each.text);
    if (each.text.starts_with("Björk")) {
      EXPECT_EQ(pattern.prefixes(), (std::vector<std::string>{"bjork", "angstrom"}));
      continue;
    }
    EXPECT_EQ(pattern.match(), each.match) << each.text;
    EXPECT_EQ(pattern.prefixes(), each.prefixes) << each.text;
  }
}

TEST(LibrarySearch, FindsNamesOfAllScripts) {
  TestLibrary library;
  for (const auto& row : {
           test::TrackRow{.title = "Wish You Were Here", .artist = "Pink Floyd", .album = "Wish"},
           test::TrackRow{.title = "Jóga", .artist = "Björk", .album = "Homogenic"},
           test::TrackRow{.title = "Группа крови", .artist = "Кино", .album = "1988"},
           test::TrackRow{.title = "丸の内サディスティック", .artist = "椎名林檎", .album = "無罪"},
           test::TrackRow{.title = "تملي معاك", .artist = "عمرو دياب", .album = "ليالي"},
           test::TrackRow{.title = "Don’t Stop (Live)", .artist = "AC/DC", .album = "🎵 Notes"},
       }) {
    library.add(row);
  }
  LibrarySearch search(library.database());
  struct Case {
    std::string text;
    Ids found;
  };
  for (const Case& each : {
           Case{"pink flo", {1}},
           Case{"ink", {}},
           Case{"BJORK", {2}},
           Case{"bjö jo", {2}},
           Case{"кин гру", {3}},
           Case{"丸の内", {4}},
           Case{"عمرو", {5}},
           Case{"don't", {6}},
           Case{"don’t st", {6}},
           Case{"ac/dc", {6}},
           Case{"🎵", {}},
           Case{"🎵 notes", {6}},
           Case{"", {}},
           Case{"lived", {6}},
           Case{"\xff\xfe\xc3", {}},
           Case{std::string("pink\0flo", 8), {1}},
           Case{std::string(1 << 20, '"'), {}},
           Case{std::string(1 << 20, 'w'), {}},
       }) {
    EXPECT_EQ(idsOf(search.searchTracks(each.text)), each.found) << each.text.substr(0, 40);
  }
  std::string noise;
  std::mt19937 random(1);
  for (int i = 0; i < 1 << 20; ++i) noise += static_cast<char>(random());
  EXPECT_TRUE(search.searchTracks(noise).empty());
  EXPECT_TRUE(search.searchArtists(noise).empty());
}

/// A full-text table whose rows come, go and change over many transactions.
class History {
 public:
  explicit History(unsigned seed) : _random(seed) {
    // Pages so small that a doclist runs over several, and merges that stop half-way.
    const int page = pick(2) == 0 ? 4050 : 40 + pick(200);
    library.run("INSERT INTO tracks_fts(tracks_fts, rank) VALUES ('pgsz', ?)", page);
    library.run("INSERT INTO tracks_fts(tracks_fts, rank) VALUES ('automerge', ?)", pick(5));
    const int transactions = 1 + pick(12);
    for (int i = 0; i < transactions; ++i) step(1 + pick(60));
  }

  std::string text(int most) {
    // Short words over few letters: many terms share a beginning, and many rows a rank.
    std::string text;
    for (int words = pick(most) + 1; words > 0; --words) {
      for (int letters = pick(4) + 1; letters > 0; --letters) {
        text += static_cast<char>('a' + pick(3));
      }
      if (pick(12) == 0) text += "ing";
      text += ' ';
    }
    return text;
  }
  int pick(int below) { return static_cast<int>(_random() % static_cast<unsigned>(below)); }

  TestLibrary library;

 private:
  void step(int changes) {
    library.queue().write([&](sqlite::Writer& writer) {
      for (int i = 0; i < changes; ++i) {
        // Up to here ids are in use or were once.
        const int known = pick(std::max(1, _last));
        const bool isNew = _last == 0 || pick(3) > 0;
        if (!isNew) writer.run("DELETE FROM tracks_fts WHERE rowid = ?", known);
        if (!isNew && pick(2) == 0) continue;
        const int id = isNew ? (_last += 1 + pick(3)) : known;
        if (id == 0) continue;
        writer.run(
            "INSERT INTO tracks_fts(rowid, title, artistName, albumTitle) "
            "VALUES (?, ?, ?, ?)",
            id, text(6), text(2), text(3));
      }
      if (pick(4) == 0) {
        writer.run("INSERT INTO tracks_fts(tracks_fts, rank) VALUES ('merge', ?)", 1 + pick(4));
      }
    });
  }

  std::mt19937 _random;
  int _last = 0;
};

TEST(PrefixMatches, AreThoseOfFts5ToTheLastBit) {
  std::size_t found = 0;
  for (unsigned seed = 0; seed < 40; ++seed) {
    History history(seed);
    history.library.queue().read([&](sqlite::Reader& reader) {
      if (reader.first<int>("SELECT COUNT(*) FROM tracks_fts") == 0) return;
      const RowSizes sizes = RowSizes::read(reader);
      for (int i = 0; i < 12; ++i) {
        const SearchPattern pattern(history.text(3));
        const SearchMatches matches = matchesOfPrefixes(reader, sizes, *pattern.prefixes());
        found += matches.size();
        std::vector<SearchMatches::Match> told;
        reader.each(
            "SELECT rowid, rank FROM tracks_fts WHERE tracks_fts MATCH ?",
            [&](const sqlite::Row& row) {
              told.push_back({row.get<std::int64_t>(0), row.get<double>(1)});
            },
            pattern.match());
        ASSERT_EQ(matches.all(), told) << seed << ": " << pattern.match();
        for (const auto& [limit, offset] : {std::pair{-1, 0}, {5, 0}, {7, 3}, {1000, 4}, {0, 0}}) {
          ASSERT_EQ(matches.byRelevance(limit, offset),
                    reader.column<std::int64_t>("SELECT rowid FROM tracks_fts WHERE tracks_fts "
                                                "MATCH ? ORDER BY rank LIMIT ? OFFSET ?",
                                                pattern.match(), limit, offset))
              << seed << ": " << pattern.match() << ' ' << limit << ' ' << offset;
        }
      }
    });
  }
  EXPECT_GT(found, 3'000U);
}

/// Every scope against the statement that defines it, over names that repeat.
TEST(LibrarySearch, ScopesFindWhatTheirStatementsDo) {
  TestLibrary library;
  std::mt19937 random(3);
  const auto pick = [&](unsigned below) { return random() % below; };
  const std::vector<std::string> words{"love", "lover", "the", "them", "live", "olive", "sun"};
  const auto name = [&] { return words[pick(7)] + ' ' + words[pick(7)]; };
  for (int i = 1; i <= 300; ++i) {
    library.add({.title = name() + ' ' + name(),
                 .artist = name(),
                 .album = name(),
                 .path = "/m_sic/" + std::string(pick(2) == 0 ? "lo/" : "Lo%/") + words[pick(7)] +
                         (pick(3) == 0 ? "/" : "-") + std::to_string(i),
                 .year = 1990 + static_cast<int>(pick(5)),
                 .number = static_cast<int>(pick(9)),
                 .genre = pick(2) == 0 ? "Rock" : "rock",
                 .composer = words[pick(7)]});
  }
  library.run("INSERT INTO playlists (id, name, createdAt, updatedAt) VALUES (1, 'p', '', '')");
  library.run(
      "INSERT INTO playlist_tracks (playlistId, trackId, position, createdAt) "
      "SELECT 1, id, 1000 - id * 7 % 997, '' FROM tracks WHERE id % 3 = 0");
  Ids favourites;
  for (std::int64_t id = 700; id > 0; --id) favourites.push_back(id * 3 % 701);
  const sqlite::Values slices[] = {{favourites.begin(), favourites.begin() + 500},
                                   {favourites.begin() + 500, favourites.end()}};
  const FocusFilter focus{{{FocusCategory::year, {{"1991", "1993"}, false}}}};
  const TrackSort sort{TrackSortColumn::year, false};

  LibrarySearch search(library.database());
  const std::string joined =
      "SELECT tracks_fts.rowid FROM tracks_fts JOIN tracks ON tracks.id = tracks_fts.rowid "
      "JOIN albums ON albums.id = tracks.albumId JOIN artists ON artists.id = tracks.artistId "
      "WHERE tracks_fts MATCH ? AND ";
  const std::string inFocus = "albums.year IN (1991, 1993) ";
  const std::string sorted =
      "ORDER BY COALESCE(albums.year, 0) DESC, artists.name COLLATE NOCASE, albums.title COLLATE "
      "NOCASE, tracks.discNumber, tracks.trackNumber, tracks.cueStartTime LIMIT ? OFFSET ?";
  const auto told = [&](const std::string& sql, const auto&... arguments) {
    return library.column<std::int64_t>(sql, arguments...);
  };
  const auto same = [&](const std::vector<TrackInfo>& found, const std::string& sql,
                        const auto&... arguments) {
    EXPECT_EQ(idsOf(found), told(sql, arguments...)) << sql;
  };
  for (const char* text : {"lo", "love the", "sun", "the l s", "olives", "nothing", "l", "l’t"}) {
    SCOPED_TRACE(text);
    const std::string match = SearchPattern(text).match();
    for (const auto& [limit, offset] : {std::pair{-1, 0}, {10, 0}, {10, 25}, {3, 299}, {0, 5}}) {
      SCOPED_TRACE(offset);
      same(search.searchTracks(text, {}, {}, limit, offset),
           "SELECT rowid FROM tracks_fts WHERE tracks_fts MATCH ? ORDER BY rank "
           "LIMIT ? OFFSET ?",
           match, limit, offset);
      same(search.searchTracks(text, {}, focus, limit, offset),
           joined + inFocus + "ORDER BY rank LIMIT ? OFFSET ?", match, limit, offset);
      same(search.searchRecentlyAddedTracks(text, focus, limit, offset),
           joined + inFocus + "ORDER BY tracks_fts.rowid DESC LIMIT ? OFFSET ?", match, limit,
           offset);
      same(search.searchTracks(text, sort, focus, limit, offset), joined + inFocus + sorted, match,
           limit, offset);
      same(search.searchTracks(TrackCategory::genre, "Rock", text, sort, focus, limit, offset),
           joined + "tracks.genre = 'Rock' AND " + inFocus + sorted, match, limit, offset);
    }
    Ids among;
    for (const sqlite::Values& slice : slices) {
      const Ids more = told(
          "SELECT tracks_fts.rowid FROM tracks_fts WHERE tracks_fts MATCH ? AND "
          "tracks_fts.rowid IN (" +
              sqlite::placeholders(slice.size()) + ") ORDER BY rank",
          match, slice);
      among.insert(among.end(), more.begin(), more.end());
    }
    EXPECT_EQ(idsOf(search.searchTracksAmong(text, favourites)), among);
    same(search.searchTracksInPlaylist(text, 1),
         "SELECT pt.trackId FROM playlist_tracks pt JOIN tracks_fts ON tracks_fts.rowid "
         "= pt.trackId WHERE pt.playlistId = 1 AND tracks_fts MATCH ? "
         "ORDER BY pt.position",
         match);
    for (const char* folder : {"/m_sic/lo", "/m_sic/Lo%/", "/m_sic"}) {
      same(search.searchTracksInFolder(text, folder),
           "SELECT id FROM tracks WHERE id IN (SELECT rowid FROM tracks_fts WHERE "
           "tracks_fts MATCH ?) AND filePath GLOB ?2 || '*' AND filePath NOT GLOB ?2 || "
           "'*/*' ORDER BY filePath COLLATE NOCASE",
           match, std::string(folder) + (std::string(folder).ends_with('/') ? "" : "/"));
    }
    for (std::int64_t id = 1; id <= 20; ++id) {
      same(search.searchTracksInAlbum(text, id),
           joined +
               "tracks.albumId = ? ORDER BY tracks.discNumber, tracks.trackNumber, "
               "tracks.cueStartTime",
           match, id);
      Ids albums;
      for (const Album& album : search.searchAlbumsOfArtist(text, id)) albums.push_back(*album.id);
      EXPECT_EQ(albums,
                told("SELECT DISTINCT albums.id FROM albums JOIN tracks ON tracks.albumId = "
                     "albums.id JOIN tracks_fts ON tracks_fts.rowid = tracks.id WHERE "
                     "albums.artistId = ? AND tracks_fts MATCH ? ORDER BY albums.year, "
                     "albums.title COLLATE NOCASE",
                     id, match));
    }
  }
}

TEST(LibrarySearch, NamesHoldTheTextAsItStands) {
  TestLibrary library;
  for (const char* artist : {"b%", "B_x", "a\\b", "Ärzte", "abba"}) library.add({.artist = artist});
  for (const char* name : {"B side", "a b", "gone b"}) {
    library.run(
        "INSERT INTO playlists (name, isHidden, createdAt, updatedAt) "
        "VALUES (?, ?1 LIKE 'gone%', '2024-01-01 00:00:00.000', '2024-01-01 00:00:00.000')",
        name);
  }
  LibrarySearch search(library.database());
  const auto artists = [&](const std::string& text) {
    std::string names;
    for (const Artist& artist : search.searchArtists(text)) names += artist.name + '|';
    return names;
  };
  EXPECT_EQ(artists("B"), "a\\b|abba|b%|B_x|");
  EXPECT_EQ(artists("%"), "b%|");
  EXPECT_EQ(artists("_"), "B_x|");
  EXPECT_EQ(artists("\\"), "a\\b|");
  EXPECT_EQ(artists("'"), "");
  EXPECT_EQ(artists("rzt"), "Ärzte|");
  EXPECT_EQ(artists(std::string("b\0", 2)) + artists(std::string(1 << 20, '%')), "");
  std::string playlists;
  for (const Playlist& playlist : search.searchPlaylists("b")) playlists += playlist.name + '|';
  EXPECT_EQ(playlists, "a b|B side|");
}

TEST(LibrarySearch, ServesManyThreadsWhileTheLibraryGrows) {
  TestLibrary library;
  library.add({.title = "One"});
  LibrarySearch search(library.database());
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([&] {
      for (std::size_t found = 0; found < 20;) {
        const std::size_t now = search.searchTracks("one").size();
        ASSERT_GE(now, found);
        found = now;
      }
    });
  }
  for (int i = 2; i <= 20; ++i) library.add({.title = "One", .path = std::to_string(i)});
  for (std::thread& thread : threads) thread.join();
}

TEST(PrefixMatches, LeaveWhatTheyDoNotKnowToFts5) {
  for (const char* sql : {
           "UPDATE tracks_fts_config SET v = 5 WHERE k = 'version'",
           "UPDATE tracks_fts_docsize SET id = 9000000000000 WHERE id = 2",
           "UPDATE tracks_fts_docsize SET sz = x'ff' WHERE id = 2",
       }) {
    TestLibrary library;
    library.add({.title = "One"});
    library.add({.title = "Two"});
    LibrarySearch search(library.database());
    EXPECT_EQ(idsOf(search.searchTracks("on")), Ids{1});
    library.run(sql);
    library.add({.title = "Once more"});
    EXPECT_EQ(idsOf(search.searchTracks("on")), (Ids{1, 3})) << sql;
  }
}

}  // namespace
}  // namespace velorin
