// Scanned files become rows: whose they are, what an album says of them, and all or nothing.

#include "library/queries/LibraryImport.h"

#include <gtest/gtest.h>

#include "library/TestLibrary.h"
#include "library/rows/TrackInfos.h"

namespace velorin {
namespace {

using test::TestLibrary;

ScannedItem item(const std::string& artist, const std::string& album, const std::string& title,
                 const std::optional<std::string>& format = "FLAC") {
  ScannedItem item;
  item.artistName = artist;
  item.albumTitle = album;
  item.track.title = title;
  item.track.filePath = "/m/" + title;
  item.track.duration = 1;
  item.track.format = format;
  return item;
}

/// A track with another value in each field.
Track fullTrack() {
  Track track;
  track.title = "Füll \U0001F3B5 \u202Eעברית";
  track.trackNumber = 1;
  track.discNumber = 2;
  track.duration = 3.5;
  track.filePath = "/m/\xff\xfe.flac";
  track.sampleRate = 4;
  track.bitDepth = 5;
  track.channels = 6;
  track.format = "DSD";
  track.bitRate = 7;
  track.fileSize = std::int64_t{8} << 40;
  track.lastModified = std::chrono::sys_days(std::chrono::year(2009) / 8 / 7);
  track.composer = "composer";
  track.conductor = "conductor";
  track.comment = "comment";
  track.lyrics = "lyrics";
  track.genre = "genre";
  track.cueStartTime = 9.25;
  track.cueEndTime = 10.25;
  track.replayGainTrackGain = -11;
  track.replayGainAlbumGain = -12;
  track.replayGainTrackPeak = 0.13;
  track.replayGainAlbumPeak = 0.14;
  track.syncedLyrics = "[00:01.00]la";
  track.bookmarks = {
      {TrackBookmark{"ID", 15.5, "label", "red"}, TrackBookmark{"ID2", 16, std::nullopt, "blue"}}};
  track.rating = 3;
  track.totalPlays = 17;
  track.totalSkips = 18;
  track.scannedLoudness = -19.5;
  track.scannedTruePeak = 0.2;
  track.loudnessScanVersion = 21;
  track.dynamicRange = 22;
  return track;
}

TEST(LibraryImport, EveryFieldComesBack) {
  TestLibrary library;
  ScannedItem full = item("Artist", "Album", "");
  full.track = fullTrack();
  full.year = 1977;
  full.albumGenre = "album genre";
  full.artworkPath = "/art.jpg";
  ScannedItem empty = item("Other", std::string(10'000, 'x'), std::string(10'000, 'y'), {});
  LibraryImport(library.database()).insertBatch({full, empty});

  const auto infos = library.queue().read([](sqlite::Reader& reader) {
    return rows::trackInfosInOrder(reader, {1, 2});
  });
  ASSERT_EQ(infos.size(), 2U);
  Track expected = full.track;
  expected.id = 1;
  expected.albumId = 1;
  expected.artistId = 1;
  expected.year = 1977;
  EXPECT_EQ(infos[0].track, expected);
  EXPECT_EQ(infos[0].album,
            (Album{1, "Album", 1, 1977, "/art.jpg", "album genre", "DSD", std::nullopt}));
  EXPECT_EQ(infos[0].artist, (Artist{1, "Artist"}));
  expected = empty.track;
  expected.id = 2;
  expected.albumId = 2;
  expected.artistId = 2;
  EXPECT_EQ(infos[1].track, expected);
  EXPECT_EQ(library.column<std::string>("SELECT albumTitle FROM tracks_fts ORDER BY rowid"),
            (std::vector<std::string>{"Album", std::string(10'000, 'x')}));
}

TEST(LibraryImport, ParentsAreFoundWithoutRegardToCase) {
  TestLibrary library;
  LibraryImport import(library.database());
  ScannedItem first = item("ABBA", "Gold", "1");
  first.artworkPath = "/first.jpg";
  first.year = 1992;
  import.insertBatch({first, item("Abba", "GOLD", "2"), item("ABBA", "Other", "3")});
  ScannedItem later = item("abba", "gold", "4");
  later.artworkPath = "/later.jpg";
  ScannedItem sameTitle = item("Blur", "Gold", "5");
  import.insertBatch({later, sameTitle, item("Ärzte", "x", "6"), item("ärzte", "x", "7")});

  using Texts = std::vector<std::string>;
  EXPECT_EQ(library.column<std::string>("SELECT name FROM artists ORDER BY id"),
            (Texts{"ABBA", "Blur", "Ärzte", "ärzte"}));
  EXPECT_EQ(library.column<std::string>("SELECT title || artistId FROM albums ORDER BY id"),
            (Texts{"Gold1", "Other1", "Gold2", "x3", "x4"}));
  EXPECT_EQ(library.column<int>("SELECT albumId FROM tracks ORDER BY id"),
            (std::vector<int>{1, 1, 2, 1, 3, 4, 5}));
  EXPECT_EQ(library.value<std::string>("SELECT artworkPath FROM albums WHERE id = 1"),
            "/first.jpg");
  EXPECT_EQ(library.value<int>("SELECT year FROM tracks WHERE id = 2"), 1992);
  // The search index has each item's own spelling.
  EXPECT_EQ(library.value<std::string>("SELECT artistName FROM tracks_fts WHERE rowid = 2"),
            "Abba");
}

TEST(LibraryImport, AnAlbumNamesItsWeakestFormat) {
  struct Case {
    std::vector<std::optional<std::string>> formats;
    const char* worst;
  };
  TestLibrary library;
  LibraryImport import(library.database());
  int number = 0;
  for (const Case& each : {Case{{"FLAC"}, "FLAC"}, Case{{"FLAC", "MP3", "FLAC"}, "MP3"},
                           Case{{"DSD", "wav", "ALAC"}, "wav"}, Case{{"dsd", {}}, "dsd"},
                           Case{{{}}, ""}, Case{{"Opus", "MP3"}, "Opus"}}) {
    const std::string album = "album " + std::to_string(number++);
    for (const auto& format : each.formats) import.insertBatch({item("a", album, "t", format)});
    EXPECT_EQ(library.value<std::string>("SELECT worstFormat FROM albums WHERE title = ?", album),
              each.worst)
        << album;
  }
}

TEST(LibraryImport, ABadItemLeavesTheLibraryAsItWas) {
  TestLibrary library;
  LibraryImport import(library.database());
  ScannedItem bad = item("x", "y", "z");
  bad.track.title = std::string("a\0b", 3);
  EXPECT_THROW(import.insertBatch({item("a", "b", "c"), bad}), VelorinDatabaseError);
  for (const char* table : {"artists", "albums", "tracks", "tracks_fts"}) {
    EXPECT_EQ(library.value<int>(std::string("SELECT COUNT(*) FROM ") + table), 0) << table;
  }
  // More names than a statement may have parameters.
  std::vector<ScannedItem> many;
  for (int i = 0; i < 1'300; ++i) {
    many.push_back(item("artist " + std::to_string(i), "album " + std::to_string(i), "t"));
  }
  import.insertBatch(many);
  import.insertBatch(many);
  EXPECT_EQ(library.value<int>("SELECT COUNT(*) FROM artists"), 1'300);
  EXPECT_EQ(library.value<int>("SELECT COUNT(*) FROM albums"), 1'300);
  EXPECT_EQ(library.value<int>("SELECT COUNT(*) FROM tracks"), 2'600);
  const DatabaseHandle none;
  EXPECT_THROW(LibraryImport(none).insertBatch(many), VelorinDatabaseError);
}

}  // namespace
}  // namespace velorin
