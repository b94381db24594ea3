// Records that are stored as text or shown to the listener.

#include <gtest/gtest.h>

#include "records/FocusFilter.h"
#include "records/PinnedItem.h"
#include "records/Sorts.h"
#include "records/TrackDisplay.h"

namespace velorin {
namespace {

template <class Column>
void expectStored(const std::vector<std::string>& names) {
  for (std::size_t i = 0; i < names.size(); ++i) {
    for (const bool ascending : {true, false}) {
      const Sort<Column> sort{static_cast<Column>(i), ascending};
      const std::string json =
          R"({"column":")" + names[i] + R"(","ascending":)" + (ascending ? "true}" : "false}");
      EXPECT_EQ(toJSON(sort), json);
      EXPECT_EQ(sortFromJSON<Sort<Column>>(json), sort) << json;
    }
  }
  for (const char* json :
       {"", "null", "[]", "{", R"({"column":"name"})", R"({"ascending":true})",
        R"({"column":"Name","ascending":true})", R"({"column":"title","ascending":1})",
        R"({"column":0,"ascending":true})", "{\"column\":\"\xff\"}"}) {
    EXPECT_EQ(sortFromJSON<Sort<Column>>(json), std::nullopt) << json;
  }
}

// These texts stand in preference files.
TEST(Records, SortsAreStoredByTheNamesOfTheirColumns) {
  expectStored<TrackSortColumn>({"title", "artist", "album", "composer", "genre", "year",
                                 "duration", "format", "sampleRate", "rating", "plays"});
  expectStored<AlbumSortColumn>({"title", "artist", "year"});
  expectStored<ArtistSortColumn>({"name", "albumCount", "songCount"});
  expectStored<CategorySortColumn>({"name", "songCount"});
  EXPECT_EQ(sortFromJSON<CategorySort>(R"({ "ascending" : false, "more": [1], "column":"name" })"),
            (CategorySort{CategorySortColumn::name, false}));
}

TEST(Records, PinnedItemTypesAreStoredByName) {
  int count = 0;
  for (const char* name : {"song", "playlist", "artist", "album", "genre", "composer"}) {
    const auto type = pinnedItemType(name);
    ASSERT_TRUE(type) << name;
    EXPECT_EQ(static_cast<int>(*type), count++);
    EXPECT_EQ(rawValue(*type), name);
  }
  EXPECT_EQ(pinnedItemType("Song"), std::nullopt);
}

TEST(Records, FocusValuesHaveALongAndAShortLabel) {
  struct {
    FocusCategory category;
    const char* value;
    const char* display;
    const char* chip;
  } const cases[] = {
      {FocusCategory::bitDepth, "1", "DSD (1-bit)", "DSD"},
      {FocusCategory::bitDepth, "24", "24-bit", "24-bit"},
      {FocusCategory::sampleRate, "44100", "44 kHz", "44kHz"},
      {FocusCategory::sampleRate, "1000", "1 kHz", "1kHz"},
      {FocusCategory::sampleRate, "999", "999 Hz", "999Hz"},
      {FocusCategory::sampleRate, "44.1", "44.1", "44.1"},
      {FocusCategory::genre, "1", "1", "1"},
      {FocusCategory::year, "1999", "1999", "1999"},
  };
  for (const auto& [category, value, display, chip] : cases) {
    EXPECT_EQ(focusDisplayValue(value, category), display);
    EXPECT_EQ(focusChipValue(value, category), chip);
  }
}

TEST(Records, ATrackShowsItsQuality) {
  struct {
    std::optional<int> rate, depth;
    std::optional<std::string> format;
    std::optional<int> bitRate;
    const char *rateText, *depthText, *line;
    bool high;
  } const cases[] = {
      {{}, {}, {}, {}, "—", "—", "—", false},
      {44100, 16, "FLAC", 900'000, "44.1 kHz", "16-bit", "16bit / 44.1 kHz", false},
      {48000, 24, "FLAC", {}, "48.0 kHz", "24-bit", "24bit / 48.0 kHz", true},
      {48001, 16, "WAV", {}, "48.0 kHz", "16-bit", "16bit / 48.0 kHz", true},
      {800, {}, "WAV", {}, "800 Hz", "—", "0.8 kHz", false},
      {44100, {}, "MP3", 320'500, "44.1 kHz", "—", "320 kbps", false},
      {44100, 0, "MP3", 128'000, "44.1 kHz", "0-bit", "128 kbps", false},
      {44100, {}, "MP3", 0, "44.1 kHz", "—", "44.1 kHz", false},
      {{}, 24, {}, {}, "—", "24-bit", "24bit", true},
      {2'822'400, 1, "DSD", 5'644'800, "DSD64", "DSD64", "DSD64", true},
      {5'644'800, 1, "DSD", {}, "DSD128", "DSD128", "DSD128", true},
      {11'289'600, 1, "DSD", {}, "DSD256", "DSD256", "DSD256", true},
      {22'579'200, 1, "DSD", {}, "DSD512", "DSD512", "DSD512", true},
      {3'072'000, 1, "DSD", {}, "3072.0 kHz", "1-bit", "1bit / 3072.0 kHz", true},
      {2'822'400, 24, "DSD", {}, "2822.4 kHz", "24-bit", "24bit / 2822.4 kHz", true},
  };
  for (const auto& each : cases) {
    Track track;
    track.sampleRate = each.rate;
    track.bitDepth = each.depth;
    track.format = each.format;
    track.bitRate = each.bitRate;
    SCOPED_TRACE(each.line);
    EXPECT_EQ(sampleRateText(track), each.rateText);
    EXPECT_EQ(bitDepthText(track), each.depthText);
    EXPECT_EQ(qualityLine(track), each.line);
    EXPECT_EQ(isHighResolution(track), each.high);
  }
}

TEST(Records, ATrackShowsItsLengthAndGenre) {
  EXPECT_EQ(durationText(0), "0:00");
  EXPECT_EQ(durationText(59.999), "0:59");
  EXPECT_EQ(durationText(3661), "61:01");
  for (const double nonsense : {-1.0, 1e300, std::numeric_limits<double>::quiet_NaN()}) {
    EXPECT_EQ(durationText(nonsense), "0:00");
  }

  TrackInfo info;
  EXPECT_EQ(genreShown(info), "");
  info.album.genre = "Jazz";
  EXPECT_EQ(genreShown(info), "Jazz");
  info.track.genre = "Bop";
  EXPECT_EQ(genreShown(info), "Bop");
}

}  // namespace
}  // namespace velorin
