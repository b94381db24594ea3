// Sheets and their audio files on a real disk, read by a scan or opened from outside.
#include "library/cue/CueImporter.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>

#include "foundation/Log.h"
#include "library/TestLibrary.h"
#include "library/cue/CueAudio.h"
#include "library/cue/CueText.h"
#include "library/cue/ExternalTracks.h"
#include "library/queries/ProcessedCues.h"
#include "library/scan/ScanState.h"
#include "support/TemporaryFolder.h"

namespace velorin {
namespace {

namespace fs = std::filesystem;

class CueFiles : public testing::Test {
 protected:
  fs::path write(const fs::path& name, const std::string& bytes) const {
    fs::create_directories((_folder / name).parent_path());
    std::ofstream(_folder / name, std::ios::binary) << bytes;
    return _folder / name;
  }
  /// Ten seconds of silence, 8 kHz, mono, as a WAV file.
  fs::path writeAudio(const fs::path& name) const {
    const auto little = [](std::uint32_t value, int bytes) {
      std::string text;
      for (int i = 0; i < bytes; ++i) text += static_cast<char>(value >> (8 * i));
      return text;
    };
    const std::uint32_t size = 160'000;
    return write(name, "RIFF" + little(size + 36, 4) + "WAVEfmt " + little(16, 4) + little(1, 2) +
                           little(1, 2) + little(8000, 4) + little(16000, 4) + little(2, 2) +
                           little(16, 2) + "data" + little(size, 4) + std::string(size, '\0'));
  }
  std::string locate(const std::vector<std::string>& spellings) const {
    const auto found = locateAudio(spellings, _folder.path());
    return found ? fs::path(*found).lexically_relative(_folder.path()).native() : "none";
  }
  ScanState state() const {
    return ScanState({.existingKeys = {},
                      .processedCues = ProcessedCues(_library.database()).fetchProcessedCues(),
                      .watchedRoots = {_folder.path()}},
                     [](const std::string& folder) { return folder + "/cover.jpg"; });
  }
  CueImporter::Outcome process(const fs::path& sheet) const {
    ScanState current = state();
    return CueImporter(_library.database()).processCue(sheet, current);
  }

  const test::TemporaryFolder _folder;
  mutable test::TestLibrary _library;
};

TEST_F(CueFiles, AudioIsFoundByEachSpelling) {
  writeAudio("Disc.FLAC");
  writeAudio("both.flac");
  writeAudio("both.WAV");
  writeAudio("CD1/image.ape");
  writeAudio("Caf\u00e9.m4a");
  writeAudio("caf\xE9-raw.mp3");
  writeAudio("two  blanks.wav");
  writeAudio("raw.bin");
  writeAudio("notes.txt");
  fs::create_directory(_folder / "folder.flac");
  ASSERT_EQ(::mkfifo((_folder / "pipe.wav").c_str(), 0600), 0);
  struct Case {
    std::vector<std::string> spellings;
    const char* found;
  };
  const std::vector<Case> cases = {
      {{"disc.wav"}, "Disc.FLAC"},
      {{"Both.wav"}, "both.WAV"},
      {{"both.mp3"}, "both.WAV"},
      {{"CD1\\image.wav"}, "CD1/image.ape"},
      {{"./x/../CD1//image.ape"}, "CD1/image.ape"},
      {{"D:\\rips\\DISC.wav"}, "Disc.FLAC"},
      {{"cafe\u0301.wav"}, "Caf\u00e9.m4a"},
      {{"café-raw.mp3", "caf\xE9-raw.mp3"}, "caf\xE9-raw.mp3"},
      {{"caf\xE8-raw.wav"}, "none"},
      {{"two blanks.wav", "two  blanks.wav"}, "two  blanks.wav"},
      {{_folder / "both.flac"}, "both.flac"},
      {{"raw.bin"}, "none"},
      {{"notes.txt"}, "notes.txt"},
      {{"notes.wav"}, "none"},
      {{"folder.flac"}, "none"},
      {{"pipe.wav"}, "none"},
      {{"", std::string("Disc.FLAC\0x", 11), ".", ".."}, "none"},
  };
  for (const Case& each : cases) EXPECT_EQ(locate(each.spellings), each.found) << each.spellings[0];
}

TEST_F(CueFiles, ASheetBecomesTracksOnceUntilItChanges) {
  const log::Capture log;
  const auto audio = writeAudio("Artist/2001 - Album/disc.wav");
  const auto sheet =
      write("Artist/2001 - Album/disc.cue",
            "REM GENRE Rock\nREM DATE 2001-05-02\nPERFORMER \"Caf\xE9\"\nTITLE \"Alb\xFCm\"\n"
            "FILE \"disc.flac\" WAVE\nTRACK 01 AUDIO\nINDEX 00 00:00:00\nINDEX 01 00:01:00\n"
            "TRACK 02 AUDIO\nTITLE Two\nPERFORMER Guest\nSONGWRITER Bach\nINDEX 00 00:03:00\n"
            "INDEX 01 00:04:37\nTRACK 03 AUDIO\nINDEX 01 00:06:00\nTRACK 04 AUDIO\n"
            "INDEX 00 00:06:00\nTRACK 05 AUDIO\nINDEX 01 00:10:00\n");
  const auto outcome = process(sheet);
  EXPECT_EQ(outcome.failure, std::nullopt);
  EXPECT_EQ(outcome.audioPath, audio.native());
  ASSERT_EQ(outcome.items.size(), 3U);  // 3 lasts no time, 5 begins at the end
  const ScannedItem& first = outcome.items[0];
  EXPECT_EQ(first.artistName, "Café");
  EXPECT_EQ(first.year, 2001);
  EXPECT_EQ(first.albumGenre, "Rock");
  EXPECT_EQ(first.artworkPath, (audio.parent_path() / "cover.jpg").native());
  EXPECT_EQ(first.track.title, "Track 1");
  EXPECT_EQ(first.track.filePath, audio.native());
  EXPECT_EQ(first.track.fileSize, 160'044);
  EXPECT_DOUBLE_EQ(*first.track.cueStartTime, 1);
  EXPECT_DOUBLE_EQ(*first.track.cueEndTime, 4 + 37 / 75.0);
  EXPECT_DOUBLE_EQ(first.track.duration, 3 + 37 / 75.0);
  EXPECT_EQ(outcome.items[1].artistName, "Guest");
  EXPECT_EQ(outcome.items[1].track.composer, "Bach");
  EXPECT_EQ(outcome.items[2].track.trackNumber, 4);
  EXPECT_DOUBLE_EQ(*outcome.items[2].track.cueEndTime, 10);
  EXPECT_TRUE(log.contains("🎵 CUE: disc.cue → 3 tracks from Albüm"));

  const auto again = process(sheet);
  EXPECT_TRUE(again.items.empty());
  EXPECT_EQ(again.audioPath, audio.native());
  fs::last_write_time(sheet, fs::last_write_time(sheet) + std::chrono::seconds(2));
  EXPECT_EQ(process(sheet).items.size(), 3U);

  const auto infos = trackInfosFromCue(sheet);
  ASSERT_EQ(infos.size(), 3U);
  EXPECT_TRUE(infos[1].isExternal);
  EXPECT_EQ(infos[1].track.artistId, kExternalId);
  EXPECT_EQ(infos[1].track.cueStartTime, outcome.items[1].track.cueStartTime);
}

TEST_F(CueFiles, ASheetThatCannotBeUsedIsLeftAloneUntilItChanges) {
  const test::TemporaryFolder elsewhere;
  writeAudio("disc.wav");
  write("noise.wav", "no sound at all");
  fs::copy_file(_folder / "disc.wav", elsewhere / "disc.wav");
  const std::string track = "\" WAVE\nTRACK 1 AUDIO\nINDEX 01 00:00:00\n";
  struct Case {
    std::string bytes;
    const char* line;
  };
  const std::vector<Case> cases = {
      {"", "⚠️ Cannot read CUE file: a.cue"},
      {std::string(kLargestCueSheet + 1, ' '), "⚠️ Cannot read CUE file: a.cue"},
      {"FILE x\n", "⚠️ CUE parse error: a.cue: file in line 1"},
      {"TITLE x\n", "⚠️ CUE audio file not found: "},
      {"FILE \"gone.wav" + track, "⚠️ CUE audio file not found: gone.wav"},
      {"FILE \"noise.wav" + track, "⚠️ CUE audio file cannot be read: noise.wav"},
      {"FILE \"" + (elsewhere / "disc.wav").native() + track, "⚠️ CUE audio file not found: "},
  };
  for (const Case& each : cases) {
    const auto sheet = write("a.cue", each.bytes);
    ProcessedCues(_library.database()).clearProcessedCues();
    const log::Capture log;
    const auto outcome = process(sheet);
    EXPECT_TRUE(outcome.items.empty() && !outcome.audioPath) << each.line;
    EXPECT_TRUE(outcome.failure && !outcome.failure->empty()) << each.line;
    EXPECT_TRUE(log.contains(each.line)) << each.line << log.lines().size();
    EXPECT_EQ(ProcessedCues(_library.database()).fetchProcessedCues().count(sheet), 1U);
  }
  EXPECT_EQ(trackInfosFromCue(_folder / "a.cue").size(), 1U)
      << "opened by hand it may lead anywhere";
  EXPECT_TRUE(trackInfosFromCue(_folder / "none.cue").empty());
}

TEST_F(CueFiles, ASheetOfSeveralFilesLeavesThemToThemselves) {
  const log::Capture log;
  const auto one = writeAudio("1.wav");
  writeAudio("2.wav");
  const auto sheet =
      write("all.cue",
            "PERFORMER \"Band\"\nTITLE \"Album\"\nFILE \"1.wav\" WAVE\nTRACK 01 AUDIO\n"
            "TITLE \"One\"\nINDEX 01 00:00:00\nFILE \"2.flac\" WAVE\nTRACK 02 AUDIO\n"
            "PERFORMER \"Guest\"\nFILE \"gone.wav\" WAVE\nTRACK 03 AUDIO\n");
  _library.add({.title = "cue", .path = one, .cueStart = 0.0});
  _library.add({.title = "whole", .path = one});
  const auto outcome = process(sheet);
  EXPECT_TRUE(outcome.items.empty() && !outcome.audioPath && !outcome.failure);
  EXPECT_EQ(_library.column<std::string>("SELECT title FROM tracks"),
            std::vector<std::string>{"whole"});
  EXPECT_TRUE(log.contains("🧹 Cleaned up 1 broken CUE track(s) from multi-FILE: all.cue"));

  const auto infos = trackInfosFromCue(sheet);
  ASSERT_EQ(infos.size(), 2U);
  EXPECT_EQ(infos[0].track.title, "One");
  EXPECT_EQ(infos[0].artist.name, "Band");
  EXPECT_EQ(infos[1].track.title, "2");
  EXPECT_EQ(infos[1].artist.name, "Guest");
  EXPECT_EQ(infos[1].album.title, "Album");
  EXPECT_DOUBLE_EQ(infos[1].track.duration, 10);
  const TrackInfo none = trackInfoFromFile(_folder / "Gone.mp3");
  EXPECT_EQ(none.track.title, "Gone");
  EXPECT_EQ(none.track.format, "MP3");
  EXPECT_EQ(none.artist.name, "Unknown Artist");
}

}  // namespace
}  // namespace velorin
