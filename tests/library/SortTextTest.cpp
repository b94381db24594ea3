// The texts of which the statements of listings are composed.

#include <gtest/gtest.h>

#include "library/queries/FocusSQL.h"
#include "library/queries/SortText.h"

namespace velorin {
namespace {

TEST(SortText, ATieBreakThatRepeatsThePrimaryIsLeftOut) {
  const std::string artist = ", artists.name COLLATE NOCASE";
  const std::string year = ", albums.year";
  const std::string album = ", albums.title COLLATE NOCASE";
  const std::string place = ", tracks.discNumber, tracks.trackNumber, tracks.cueStartTime";
  const std::string all = artist + year + album + place;
  using Column = TrackSortColumn;
  const std::pair<Column, std::string> tracks[] = {
      {Column::title, "tracks.title COLLATE NOCASE ASC" + all},
      {Column::artist, "artists.name COLLATE NOCASE ASC" + year + album + place},
      {Column::album, "albums.title COLLATE NOCASE ASC" + artist + year + place},
      {Column::composer, "COALESCE(tracks.composer, '') COLLATE NOCASE ASC" + all},
      {Column::genre, "COALESCE(tracks.genre, '') COLLATE NOCASE ASC" + all},
      {Column::year, "COALESCE(albums.year, 0) ASC" + artist + album + place},
      {Column::duration, "tracks.duration ASC" + all},
      {Column::format, "COALESCE(tracks.format, '') COLLATE NOCASE ASC" + all},
      {Column::sampleRate, "COALESCE(tracks.sampleRate, 0) ASC" + all},
      {Column::rating, "COALESCE(tracks.rating, 0) ASC" + all},
      {Column::plays, "tracks.totalPlays ASC" + all},
  };
  for (const auto& [column, text] : tracks) EXPECT_EQ(orderText(TrackSort{column, true}), text);
  EXPECT_EQ(orderText(TrackSort{Column::year, false}),
            "COALESCE(albums.year, 0) DESC" + artist + album + place);

  EXPECT_EQ(orderText(AlbumSort{AlbumSortColumn::artist, false}),
            "artists.name COLLATE NOCASE DESC" + year + album);
}

TEST(FocusSQL, BecomesOneConditionWithBoundValues) {
  using enum FocusCategory;
  struct {
    FocusFilter filter;
    const char* text;
    sqlite::Values arguments;
  } const cases[] = {
      {{{{year, {{"1999"}}}, {genre, {{"Rock", "Jazz"}}}}},
       "(+tracks.genre = ? COLLATE NOCASE OR +tracks.genre = ? COLLATE NOCASE) AND albums.year IN "
       "(?)",
       {"Jazz", "Rock", std::int64_t{1999}}},
      {{{{format, {{"FLAC", "MP3"}, true}}, {genre, {}}}},
       "(tracks.format != ? COLLATE NOCASE AND tracks.format != ? COLLATE NOCASE)",
       {"FLAC", "MP3"}},
      {{{{bitDepth, {{"24"}, true}}, {sampleRate, {{"96000", "44100.5", "loud", "nan", "1e3"}}}}},
       "tracks.sampleRate IN (?,?,?,?,?) AND tracks.bitDepth NOT IN (?)",
       {1000.0, 44100.5, 96000, "loud", "nan", 24}},
      {{{{genre, {{"'; DROP TABLE tracks; --"}}}}},
       "(tracks.genre = ? COLLATE NOCASE)",
       {"'; DROP TABLE tracks; --"}},
  };
  for (const auto& [filter, text, arguments] : cases) {
    const auto fragment = focusSQL(filter);
    ASSERT_TRUE(fragment) << text;
    EXPECT_EQ(fragment->text, text);
    EXPECT_EQ(fragment->arguments, arguments) << text;
  }
  EXPECT_FALSE(focusSQL(FocusFilter{}));
  EXPECT_FALSE(focusSQL(FocusFilter{{{genre, {{}, true}}, {year, {}}}}));
  EXPECT_EQ(withAlias("tracks.genre = ? AND albums.year IN (?) AND tracks.x", "tracks", "t"),
            "t.genre = ? AND albums.year IN (?) AND t.x");
}

}  // namespace
}  // namespace velorin
