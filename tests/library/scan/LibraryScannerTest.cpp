// Scans of real folders into a real database.
#include "library/scan/ScanFixture.h"
#include "records/Events.h"
#include "support/FlacFixture.h"

namespace velorin::test {
namespace {

struct LibraryScannerTest : ScanFixture {
  void writeImage(const std::string& in, const std::string& titles = "One") {
    FlacFixture::make({.frames = 441'000, .signal = FlacRecipe::Signal::sine})
        .write(path(in + "/img.flac"));
    writeSheet(in + "/img.cue", titles);
  }
  void writeSheet(const std::string& name, const std::string& title) {
    writeAged(name, fmt::format("TITLE \"Disc\"\nFILE \"img.flac\" WAVE\n TRACK 01 AUDIO\n"
                                "  TITLE \"{}\"\n  INDEX 01 00:00:00\n TRACK 02 AUDIO\n"
                                "  TITLE \"Two\"\n  INDEX 01 00:05:00\n",
                                title));
  }
  /// Each time older than the last, however fast that is.
  void writeAged(const std::string& name, const std::string& content) {
    write(name, content);
    std::filesystem::last_write_time(path(name),
                                     std::filesystem::file_time_type::clock::now() - ++_age);
  }
  /// What the watcher tells.
  bool changed(const std::vector<std::string>& paths) {
    const ::velorin::ScanParts scan = parts();
    const ScanHooks hooks;
    const ScanCallbacks silent{.updateStatus = [](const auto&) {},
                               .updateProgress = [](auto, auto) {},
                               .waitIfPaused = [] {},
                               .isCancelled = [] { return false; }};
    return FileEvents(scan, hooks, volumes, settings, silent).process(paths);
  }

 private:
  std::chrono::hours _age{24};
};

TEST_F(LibraryScannerTest, FilesOfANewFolderBecomeTracksOnce) {
  writeMany("m", 700);
  write("m/bad.flac");
  write("m/sub/not\xE9\n%.mp3");
  ASSERT_TRUE(add());
  EXPECT_EQ(count(), 701);
  EXPECT_FALSE(isMarked("m"));
  const ScanSummary first = scanner().lastSummary();
  EXPECT_EQ(first.figures.discovered, 702U);
  EXPECT_EQ(first.figures.inserted, 701U);
  ASSERT_EQ(first.failures.size(), 1U);
  EXPECT_EQ(first.failures[0].path, path("m/bad.flac"));
  EXPECT_EQ(first.failures[0].reason, "it is bad");
  EXPECT_TRUE(log.contains("⚠️ Extract failed: bad.flac"));
  for (const bool streamed : {true, false}) {
    if (streamed) {
      scanner().scan({path("m")});
      ASSERT_TRUE(untilIdle());
    } else {
      ASSERT_TRUE(rescan());
    }
    EXPECT_EQ(scanner().lastSummary().figures.inserted, 0U) << streamed;
    EXPECT_EQ(scanner().lastSummary().figures.existing, 701U) << streamed;
  }
}

TEST_F(LibraryScannerTest, ABadListingDeletesNothing) {
  struct {
    int tracks;
    int gone;
    int left;
  } const cases[] = {{50, 50, 50}, {100, 99, 1}, {101, 91, 101}, {101, 90, 11}};
  for (const auto& each : cases) {
    const std::string name = fmt::format("m{}-{}", each.tracks, each.gone);
    library.run("DELETE FROM tracks");
    library.run("DELETE FROM musicFolders");
    writeMany(name, each.tracks);
    ASSERT_TRUE(add(name));
    for (int i = 0; i < each.gone; ++i) {
      std::filesystem::remove(path(fmt::format("{}/{:04}.flac", name, i)));
    }
    ASSERT_TRUE(rescan());
    EXPECT_EQ(count(), each.left) << name;
  }
}

TEST_F(LibraryScannerTest, WhatCannotBeSeenKeepsItsTracks) {
  const auto gate = std::make_shared<Gate>();
  for (const char* const name : {"stalls", "offline", "denied", "there"}) {
    writeMany(name, 3);
    writeMany(name + std::string("/sub"), 2);
    ASSERT_TRUE(add(name));
  }
  volumes.offline = path("offline");
  settings.rescanStall = 1s;
  settings.walk = [gate, this](const std::string& root, FolderVisitor& visitor) {
    if (root == path("stalls")) return gate->wait();
    if (root == path("denied")) {
      visitor.unseen({root + "/sub", EACCES});
      visitor.file({.path = root + "/0000.flac", .kind = FileKind::audio});
    }
    if (root == path("there")) {
      visitor.file({.path = root + "/0000.flac", .kind = FileKind::audio});
    }
  };
  endScanner();
  ASSERT_TRUE(rescan());
  gate->open();
  const auto left = [this](const char* name) {
    return count(fmt::format("instr(filePath, '/{}/') > 0", name));
  };
  EXPECT_EQ(left("stalls"), 5);
  EXPECT_EQ(left("offline"), 5);
  EXPECT_EQ(left("denied"), 3);
  EXPECT_EQ(left("there"), 1);
  EXPECT_TRUE(isMarked("stalls"));
  EXPECT_TRUE(isMarked("offline"));
  EXPECT_FALSE(isMarked("denied"));
  EXPECT_EQ(scanner().lastSummary().stalled, std::vector{path("stalls")});
  EXPECT_EQ(scanner().lastSummary().offline, std::vector{path("offline")});
  // All or nothing.
  scanner().fullRescan();
  ASSERT_TRUE(untilIdle());
  EXPECT_EQ(scanner().scanState().statusText(),
            "Some folders are offline (1); full rescan skipped");
  EXPECT_EQ(count(), 14);
}

TEST_F(LibraryScannerTest, ACancelledScanKeepsWhatItHasAndIsRepeated) {
  writeMany("m", 800);
  std::atomic<int> extracted{0};
  Gate gate;
  extractor->onExtract = [&] {
    // More are on their way than may be: the walk waits.
    if (++extracted > 30) gate.wait();
  };
  MusicFolders(library.database()).addFolder(path("m"));
  scanner().scan({path("m")});
  while (extracted <= 30) std::this_thread::yield();
  scanner().cancel();
  gate.open();
  ASSERT_TRUE(untilIdle());
  EXPECT_TRUE(scanner().lastSummary().cancelled);
  const int kept = count();
  EXPECT_GE(kept, 30);
  EXPECT_LT(kept, 800);
  EXPECT_TRUE(isMarked("m"));
  ASSERT_TRUE(rescan());
  EXPECT_EQ(count(), 800);
  EXPECT_EQ(scanner().lastSummary().figures.inserted, static_cast<std::size_t>(800 - kept));
  EXPECT_FALSE(isMarked("m"));
}

TEST_F(LibraryScannerTest, OfRequestsTheNewestWinsAndFoldersQueue) {
  writeMany("m", 20);
  writeMany("later", 3);
  MusicFolders(library.database()).addFolder(path("m"));
  MusicFolders(library.database()).addFolder(path("later"));
  Gate gate;
  extractor->onExtract = [&] { gate.wait(); };
  scanner().rescan();
  scanner().rescan();
  scanner().scan({path("later")});
  gate.open();
  ASSERT_TRUE(untilIdle());
  EXPECT_EQ(count(), 23);
  const auto lines = log.lines();
  EXPECT_EQ(std::ranges::count_if(
                lines, [](const std::string& line) { return line.starts_with("✅ Rescan"); }),
            1);
  EXPECT_TRUE(log.contains("⚠️ Cancelling previous scan for new scan"));
  EXPECT_TRUE(log.contains("📂 Queued 1 folder(s) for after current scan"));
  EXPECT_TRUE(log.contains("📂 Starting queued scan for 1 folder(s)"));
}

TEST_F(LibraryScannerTest, APausedScanReadsNothingAndACancelEndsThePause) {
  writeMany("m", 50);
  MusicFolders(library.database()).addFolder(path("m"));
  std::atomic<int> extracted{0};
  Gate gate;
  extractor->onExtract = [&] {
    ++extracted;
    gate.wait();
  };
  scanner().scan({path("m")});
  while (extracted == 0) std::this_thread::yield();
  scanner().togglePause();
  EXPECT_TRUE(scanner().scanState().isPaused());
  gate.open();
  // Those that were at work come to their end, the others wait.
  scanner().cancel();
  ASSERT_TRUE(untilIdle());
  EXPECT_LT(count(), 50);
  ASSERT_TRUE(rescan());
  EXPECT_EQ(count(), 50);
}

TEST_F(LibraryScannerTest, AnImageThatASheetClaimsIsCueTracksOnly) {
  std::filesystem::create_directories(path("m"));
  writeImage("m");
  ASSERT_TRUE(add());
  EXPECT_EQ(count(), 2);
  EXPECT_EQ(count("cueStartTime IS NULL"), 0);
  EXPECT_EQ(scanner().lastSummary().figures.inserted - scanner().lastSummary().figures.withdrawn,
            2U);
  // The image changes, the sheet does not; the sheet changes, the image does not; the tracks are
  // gone, and nothing has changed.
  std::filesystem::last_write_time(path("m/img.flac"),
                                   std::filesystem::file_time_type::clock::now() - 48h);
  ASSERT_TRUE(rescan());
  EXPECT_EQ(count("cueStartTime IS NOT NULL"), 2);
  writeImage("m", "Another name");
  std::filesystem::last_write_time(path("m/img.cue"),
                                   std::filesystem::file_time_type::clock::now() - 24h);
  ASSERT_TRUE(rescan());
  EXPECT_EQ(count("title = 'Another name'"), 1);
  EXPECT_EQ(count(), 2);
  library.run("DELETE FROM tracks");
  ASSERT_TRUE(rescan());
  EXPECT_EQ(count("cueStartTime IS NOT NULL"), 2);
  EXPECT_EQ(count(), 2);
}

TEST_F(LibraryScannerTest, AnImageWhoseSheetGoesBecomesATrackAndBackAgain) {
  std::filesystem::create_directories(path("m"));
  writeImage("m");
  ASSERT_TRUE(add());
  library.run("UPDATE tracks SET totalPlays = 7 WHERE cueStartTime = 5");
  // Each step as a rescan sees it, and then as the watcher tells it.
  for (const bool byEvent : {false, true}) {
    const auto step = [&](std::vector<std::string> paths) {
      return byEvent ? changed(std::move(paths)) : rescan();
    };
    const auto sheet = path("m/img.cue");
    // Renamed, with another title.
    std::filesystem::remove(sheet);
    writeSheet("m/new.cue", "New name");
    ASSERT_TRUE(step({sheet, path("m/new.cue")}));
    EXPECT_EQ(count("title = 'New name' AND cueStartTime = 0"), 1) << byEvent;
    EXPECT_EQ(count("totalPlays = 7 AND cueStartTime = 5"), 1) << byEvent;
    EXPECT_EQ(count(), 2) << byEvent;
    // It says nothing any more; then it is gone.
    writeAged("m/new.cue", "FILE \"img.flac\" WAVE\n TRACK 01 AUDIO\n  INDEX 01 00:10:00\n");
    ASSERT_TRUE(step({path("m/new.cue")}));
    EXPECT_EQ(count("cueStartTime IS NULL"), 1) << byEvent;
    EXPECT_EQ(count(), 1) << byEvent;
    writeSheet("m/new.cue", "Another");
    ASSERT_TRUE(step({path("m/new.cue")}));
    EXPECT_EQ(count("cueStartTime IS NOT NULL"), 2) << byEvent;
    std::filesystem::remove(path("m/new.cue"));
    ASSERT_TRUE(step({path("m/new.cue")}));
    EXPECT_EQ(count("cueStartTime IS NULL"), 1) << byEvent;
    EXPECT_EQ(count(), 1) << byEvent;
    EXPECT_EQ(library.value<int>("SELECT COUNT(*) FROM processedCues"), 0) << byEvent;
    // Of two sheets the one that stays takes over.
    writeSheet("m/a.cue", "Of a");
    ASSERT_TRUE(step({path("m/a.cue")}));
    writeSheet("m/b.cue", "Of b");
    ASSERT_TRUE(step({path("m/b.cue")}));
    EXPECT_EQ(count("title = 'Of a'"), 1) << byEvent;
    EXPECT_EQ(count(), 2) << byEvent;
    std::filesystem::remove(path("m/a.cue"));
    ASSERT_TRUE(step({path("m/a.cue")}));
    EXPECT_EQ(count("title = 'Of b'"), 1) << byEvent;
    EXPECT_EQ(count("totalPlays = 7 AND cueStartTime = 5"), 1) << byEvent;
    EXPECT_EQ(count(), 2) << byEvent;
    std::filesystem::rename(path("m/b.cue"), sheet);
    ASSERT_TRUE(step({path("m/b.cue"), sheet}));
    EXPECT_EQ(count(), 2) << byEvent;
  }
}

TEST_F(LibraryScannerTest, ChangesAreImportedOneByOneOrByARescan) {
  writeMany("m", 4);
  writeImage("m");
  ASSERT_TRUE(add());
  const auto same =
      library.value<std::int64_t>("SELECT id FROM tracks WHERE filePath = ?", path("m/0000.flac"));
  std::vector<std::string> paths = {path("m/0000.flac"),    path("m/0001.flac"),
                                    path("m/0002.flac"),    path("m/img.flac"),
                                    path("m/.hidden.flac"), "/etc/x.flac"};
  write("m/0001.flac", "longer music");
  write("m/.hidden.flac");
  std::filesystem::remove(path("m/0002.flac"));
  std::filesystem::last_write_time(path("m/img.flac"),
                                   std::filesystem::file_time_type::clock::now() - 48h);
  EXPECT_TRUE(changed(paths));
  EXPECT_TRUE(log.contains("👁️ FSEvent: 2 new/modified, 1 deleted"));
  EXPECT_TRUE(log.contains("👁️ FSEvent: found 1 sibling CUE file(s)"));
  EXPECT_EQ(count(), 5);
  EXPECT_EQ(count("cueStartTime IS NOT NULL"), 2);
  EXPECT_EQ(count(fmt::format("id = {}", same)), 1);
  std::erase(paths, path("m/0002.flac"));
  EXPECT_FALSE(changed(paths));
  // A share that goes away takes no track along.
  volumes.offline = path("m");
  std::filesystem::remove(path("m/0000.flac"));
  EXPECT_FALSE(changed({path("m/0000.flac")}));

  for (const int number : {500, 501}) {
    PendingEvents pending;
    for (int i = 0; i < number; ++i) pending.add({fmt::format("/m/{}.flac", i)}, false);
    EXPECT_EQ(pending.take().needsRescan(), number == 501);
  }
}

TEST_F(LibraryScannerTest, TheWatcherBringsWhatIsNew) {
  writeMany("m", 1);
  MusicFolders(library.database()).addFolder(path("m"));
  scanner().start();
  // An empty library is scanned at the start.
  ASSERT_TRUE(MainThread::instance().runUntil([this] { return count() == 1; }, 20s));
  ASSERT_TRUE(untilIdle());
  bool told = false;
  const auto subscription = events.subscribe<LibraryDidUpdate>(
      Delivery::mainThread, [&](const LibraryDidUpdate&) { told = count() == 2; });
  write("m/new.flac");
  EXPECT_TRUE(MainThread::instance().runUntil([&] { return told; }, 20s));
  scanner().setAutoScan(false);
  EXPECT_TRUE(log.contains("📂 Scanner: auto-scan disabled"));
}

TEST_F(LibraryScannerTest, PlaylistsAreImportedUnlessTheListenerDoesNotWantThem) {
  write("m/a.flac");
  write("m/list.m3u", "a.flac\n");
  preferences.setBool("autoImportM3U", false);
  ASSERT_TRUE(add());
  EXPECT_EQ(library.value<int>("SELECT COUNT(*) FROM playlists"), 0);
  preferences.remove("autoImportM3U");
  for (int i = 0; i < 2; ++i) {
    ASSERT_TRUE(rescan());
    EXPECT_EQ(library.value<int>("SELECT COUNT(*) FROM playlists"), 1);
  }
  EXPECT_TRUE(log.contains("⏭️ Skipping M3U 'list' — playlist already exists"));
}

}  // namespace
}  // namespace velorin::test
