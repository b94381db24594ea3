#include "library/cue/CueSheetParser.h"

#include <gtest/gtest.h>

namespace velorin {
namespace {

using Code = CSError::Code;
using Meta = CSMetaKey::Kind;
using Remark = CSRemKey::Kind;

TEST(CueSheetParser, ReadsAWholeSheet) {
  const auto sheet = CueSheetParser::parse(
      "REM GENRE \"Post  Rock\"\r\nrem Date 1999\r\nREM X-Thing some 'thing'\r\n"
      "CATALOG 0123456789012\r\nPerformer \"Some Band\"\r\n"
      "TITLE 'Album'\r\nFILE \"CD 1.wav\" WAVE\r\n  SONGWRITER \"Late\"\r\n"
      "  TRACK 01 AUDIO\r\n    TITLE \"One\"\r\n    TITLE \"First\"\r\n"
      "    ISRC DEA123456789\r\n    INDEX 01 00:00:00\r\n\r\n"
      "\tTRACK 02 AUDIO\r    INDEX 00 03:58:70\n    INDEX 01 04:00:05\n    REM COMMENT \"\"\n"
      "TRACK 3\nINDEX 00 1000:00:74\nTRACK 4");
  ASSERT_TRUE(sheet) << sheet.error().text();
  const CueSheet expected{
      .meta = {{CSMetaKey::others("catalog"), "0123456789012"},
               {{Meta::performer}, "Some Band"},
               {{Meta::title}, "Album"},
               {{Meta::songWriter}, "Late"}},
      .rem = {{{Remark::genre}, "Post Rock"},
              {{Remark::date}, "1999"},
              {CSRemKey::others("x-thing"), "some 'thing"}},
      .file =
          {{.tracks =
                {{.meta = {{{Meta::title}, "First"}, {{Meta::isrc}, "DEA123456789"}},
                  .trackNum = 1,
                  .trackType = "AUDIO",
                  .index = {{1, {0}}},
                  .rem = {}},
                 {.meta = {},
                  .trackNum = 2,
                  .trackType = "AUDIO",
                  .index = {{0, {17920}}, {1, {18005}}},
                  .rem = {{{Remark::comment}, ""}}},
                 {.meta = {}, .trackNum = 3, .trackType = {}, .index = {{0, {4500074}}}, .rem = {}},
                 {.meta = {}, .trackNum = 4, .trackType = {}, .index = {}, .rem = {}}},
            .fileName = "CD 1.wav",
            .fileType = "WAVE"}},
      .ownAudioLength = {}};
  EXPECT_EQ(sheet.value(), expected);
  const auto& tracks = sheet->file[0].tracks;
  EXPECT_DOUBLE_EQ(tracks[1].start().seconds(), 18005 / 75.0);
  EXPECT_EQ(tracks[2].start().frames, 4500074);
  EXPECT_EQ(tracks[3].start().frames, 0);
}

TEST(CueSheetParser, TellsWhatIsWrongAndWhere) {
  const std::string head = "FILE a.wav WAVE\nTRACK 1 AUDIO\n";
  struct Case {
    std::string text;
    CSError error;
  };
  const std::vector<Case> cases = {
      {"", {Code::blankData, 0}},
      {" \r\n\t\n", {Code::splitError, 0}},
      {"REM GENRE", {Code::rem, 1}},
      {"\n\nTITLE", {Code::meta, 3}},
      {"FILE a.wav", {Code::file, 1}},
      {"TRACK 1 AUDIO", {Code::track, 1}},
      {head + "REM COMMENT", {Code::track, 3}},
      {head + "TITLE", {Code::track, 3}},
      {head + "TRACK", {Code::track, 3}},
      {head + "TRACK one AUDIO", {Code::track, 3}},
      {head + "INDEX 01", {Code::track, 3}},
      {head + "INDEX 256 00:00:00", {Code::track, 3}},
      {head + "INDEX 01 00:00", {Code::track, 3}},
      {head + "INDEX 01 00:00:00:00", {Code::track, 3}},
      {head + "INDEX 01 00::00", {Code::track, 3}},
      {head + "INDEX 01 -1:00:00", {Code::track, 3}},
      {head + "INDEX 01 99999999999:00:00", {Code::track, 3}},
      {"FILE a.wav WAVE\r\nINDEX 01 00:00:00", {Code::track, 2}},
  };
  for (const Case& each : cases) {
    const auto sheet = CueSheetParser::parse(each.text);
    ASSERT_FALSE(sheet) << each.text;
    EXPECT_EQ(sheet.error(), each.error) << each.text << ": " << sheet.error().text();
  }
}

}  // namespace
}  // namespace velorin
