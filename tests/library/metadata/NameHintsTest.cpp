// What tags' texts and the names of folders mean.
#include <gtest/gtest.h>

#include "foundation/Log.h"
#include "library/metadata/FolderHints.h"
#include "library/metadata/NameText.h"
#include "library/metadata/TagText.h"

namespace velorin {
namespace {

using Text = std::optional<std::string>;

TEST(TagTextTest, CleansAndReadsYears) {
  for (const auto& [tag, expected] :
       std::vector<std::pair<std::string, Text>>{{" \n\tA Title\u3000\r\n", "A Title"},
                                                 {" \n ", {}},
                                                 {"UNKNOWN", {}},
                                                 {"N/a", {}},
                                                 {" -- ", {}},
                                                 {"..", {}},
                                                 {"...", "..."},
                                                 {"Various Artists", "Various Artists"},
                                                 {"Unknown Artist", "Unknown Artist"}}) {
    EXPECT_EQ(cleanTag(tag), expected) << tag;
  }
  for (const auto& [date, year] :
       std::vector<std::pair<std::string, std::optional<int>>>{{"2001", 2001},
                                                               {"2001-05-06", 2001},
                                                               {"06.05.1999", 1999},
                                                               {"1899 or 2099", 2099},
                                                               {"21001", {}},
                                                               {"12001", 2001},
                                                               {"199", {}},
                                                               {"", {}},
                                                               {"1 9 9 9", {}}}) {
    EXPECT_EQ(parseDateYear(date), year) << date;
  }
}

TEST(FolderNameTest, LosesWhatDescribesTheRecording) {
  for (const auto& [name, rest] : std::vector<std::pair<std::string, std::string>>{
           {"FLAC 24bit 96kHz", ""},
           {"Album [FLAC]", "Album"},
           {"Album (24 BIT, 44.1 khz) [Qobuz]", "Album (, )"},
           {"Album [192,5kHz] 1411 kbps", "Album"},
           {"Album 12345kHz 1234bit", "Album 1234bit"},
           {"Album 1234.5kHz", "Album 1234.5kHz"},
           {"Hi-Res  Album   HIRES - Vinyl", "Album"},
           {"Tape Waves of Webs, CDs", "Tape Waves of Webs, CDs"},
           {"x_FLAC éMP3 FLAC_x", "x_FLAC éMP3 FLAC_x"},
           {"«MP3» 24-bit", "«» 24-bit"},
           {"Album ( [ \t ] )", "Album ( )"},
           {"_- Album -_", "Album"},
           {"A\xff", "A\uFFFD"}}) {
    EXPECT_EQ(stripTechnicalTags(name), rest) << name;
  }
}

struct NameCase {
  std::string folder;
  Text parent;
  FolderHints hints;
};

TEST(FolderNameTest, GivesArtistAlbumAndYear) {
  for (const NameCase& each : std::vector<NameCase>{
           {"Artist - Album", {}, {"Artist", "Album", {}}},
           {"Artist - Album (1919)", {}, {"Artist", "Album", 1919}},
           {"2001 - Album [Deluxe Edition]", "Artist", {"Artist", "Album [Deluxe Edition]", 2001}},
           {"2001 - Album (1999)", {}, {{}, "Album", 2001}},
           {"1919 - Album", {}, {}},
           {"2030 - Album", {}, {}},
           {"01 - Title", {}, {}},
           {" - Album", {}, {{}, "Album", {}}},
           {"Artist (a - b) - Album", {}, {"Artist (a - b)", "Album", {}}},
           {"Artist ) - [ Album", {}, {"Artist )", "[ Album", {}}},
           {"(2001) Album", {}, {{}, "Album", 2001}},
           {"Album [2029)", {}, {{}, "Album", 2029}},
           {"Album (2030)", {}, {{}, "Album (2030)", {}}},
           {"Album\u00A01999", {}, {{}, "Album", 1999}},
           {"Album1999", {}, {{}, "Album1999", {}}},
           {"(2001)", {}, {{}, "(2001)", {}}},
           {"1984", {}, {{}, "1984", {}}},
           {"FLAC 24bit 96kHz", "Artist", {"Artist", {}, {}}},
           {"Other - Album", "Artist [FLAC]", {"Artist", "Album", {}}},
           {"Other - Album", "1999", {{}, "Album", {}}},
           {"Other - Album", "MP3", {{}, "Album", {}}}}) {
    EXPECT_EQ(parseFolderName(each.folder, each.parent), each.hints) << each.folder;
  }
}

TEST(FolderNameTest, TellsTheEdition) {
  struct Case {
    std::string folder, title;
    Text hint;
  };
  for (const Case& each :
       std::vector<Case>{{"Album [Deluxe Edition]", "Album", "Deluxe Edition"},
                         {"Album [Deluxe Edition]", "Album (deluxe EDITION)", {}},
                         {"Album (2001) ( 2009 Remaster )", "Album", "2009 Remaster"},
                         {"Album (Live) [Mono]", "Album (Live)", "Mono"},
                         {"Album (Édition Japan)", "ALBUM ÉDITION JAPAN", {}},
                         {"Album (Remastered-2009) x", "Album", "Remastered-2009"},
                         {"Album (Oliver) [] (2CD)", "Album", {}},
                         {"Album [Live", "Album", {}},
                         {"Album ((Live)", "Album", "(Live"}}) {
    EXPECT_EQ(editionHint(each.folder, each.title), each.hint) << each.folder;
  }
}

ScannedItem unknown(const std::string& title) {
  ScannedItem item;
  item.artistName = kUnknownArtist;
  item.albumTitle = kUnknownAlbum;
  item.track.title = title;
  return item;
}

TEST(FolderHintsTest, FillWhatIsUnknown) {
  struct Case {
    std::string path;
    ScannedItem before;
    std::string title, artist, album;
    std::optional<int> year;
  };
  ScannedItem tagged = unknown("Song");
  tagged.artistName = "Someone";
  tagged.albumTitle = "Album";
  ScannedItem complete = tagged;
  complete.year = 1990;
  const std::string root = "/music";
  for (const Case& each : std::vector<Case>{
           {"/music/Artist/2001 - Album [Deluxe Edition]/a.mp3", unknown("Song"), "Song", "Artist",
            "Album [Deluxe Edition]", 2001},
           {"/music/Artist/2001 - Album [Deluxe Edition]/a.mp3", tagged, "Song", "Someone",
            "Album [Deluxe Edition]", 2001},
           {"/music/Artist (Live)/2001 - Album/a.mp3", complete, "Song", "Someone", "Album [Live]",
            1990},
           {"/music/2001 - Album/a.mp3", unknown("a"), "a", kUnknownArtist, "Album", 2001},
           {"/music/Artist - Title.flac",
            unknown("Artist - Title"),
            "Title",
            "Artist",
            "Title",
            {}},
           {"/music/Folder/Artist - Title.flac", tagged, "Song", "Someone", "Album", {}},
           {"/music/loose.mp3", unknown("loose"), "loose", kUnknownArtist, kUnknownAlbum, {}},
           {"/Album/a.mp3", unknown("a"), "a", kUnknownArtist, "Album", {}},
           {"a.mp3", unknown("a"), "a", kUnknownArtist, kUnknownAlbum, {}}}) {
    const log::Capture capture;
    ScannedItem item = each.before;
    applyFolderHints(item, each.path, {"/elsewhere", root + "/"});
    EXPECT_EQ(item.track.title, each.title) << each.path;
    EXPECT_EQ(item.artistName, each.artist) << each.path;
    EXPECT_EQ(item.albumTitle, each.album) << each.path;
    EXPECT_EQ(item.year, each.year) << each.path;
    const bool changed = item.artistName != each.before.artistName ||
                         item.albumTitle != each.before.albumTitle || item.year != each.before.year;
    EXPECT_EQ(capture.contains("📁 Folder hints applied to "), changed) << each.path;
  }
}

// A name of a megabyte is none that a disk holds; it must not take long all the same.
TEST(FolderHintsTest, TakeLinearTime) {
  std::string hostile;
  while (hostile.size() < 1'000'000) hostile += "([24   ( 96, - 1   bit";
  EXPECT_FALSE(stripTechnicalTags(hostile).empty());
  EXPECT_FALSE(editionHint(hostile, "x"));
  EXPECT_TRUE(parseFolderName(hostile + std::string(1'000'000, ' ')).album);
}

}  // namespace
}  // namespace velorin
