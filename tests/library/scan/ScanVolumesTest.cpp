// Scans of folders on real volumes that go, come back and hang.
#include <sys/mount.h>

#include <mutex>
#include <thread>

#include "library/scan/ScanFixture.h"
#include "library/volumes/VolumeManager.h"
#include "support/MountNamespace.h"
#include "support/StallingFileSystem.h"

namespace velorin::test {
namespace {

const auto* const kNamespace =
    testing::AddGlobalTestEnvironment(new MountNamespace);  // NOLINT: gtest owns it

struct ScanVolumes : ScanFixture {
  void SetUp() override {
    if (!MountNamespace::mayMount()) GTEST_SKIP() << "this machine lets nobody mount";
    settings.cancelGrace = 200ms;
  }
  void TearDown() override {
    endScanner();
    while (!_points.empty()) unmount(_points.back());
  }

  void mountMemory(const std::string& name, int files) {
    std::filesystem::create_directories(path(name));
    ASSERT_EQ(::mount("velorin-test", path(name).c_str(), "tmpfs", 0, "size=1m"), 0);
    _points.push_back(name);
    writeMany(name + "/music", files);
  }
  void mountFolder(const std::string& what, const std::string& name) {
    ASSERT_EQ(::mount(path(what).c_str(), path(name).c_str(), nullptr, MS_BIND, nullptr), 0);
    _points.push_back(name);
  }
  void unmount(const std::string& name) {
    EXPECT_EQ(::umount2(path(name).c_str(), MNT_DETACH), 0);
    std::erase(_points, std::string(name));
  }
  VolumeResolving& resolving() override { return manager; }
  void followVolumes() override {
    manager.rememberVolumes(MusicFolders(library.database()).getFolders());
  }
  int countIn(const std::string& name) {
    return count(fmt::format("instr(filePath, '{}/') = 1", path(name)));
  }

  VolumeManager::Settings volumeSettings{.patience = 200ms, .fstab = "/dev/null", .run = {}};
  VolumeManager manager{preferences, volumeSettings};

 private:
  std::vector<std::string> _points;
};

TEST_F(ScanVolumes, AVolumeThatGoesTakesNoTrackAlong) {
  // A music folder on a volume of its own, and one inside which a volume is mounted.
  mountMemory("disk", 6);
  writeMany("home", 4);
  mountMemory("home/inner", 5);
  ASSERT_TRUE(add("disk/music"));
  ASSERT_TRUE(add("home"));
  ASSERT_EQ(count(), 15);

  struct {
    const char* what;
    bool leavesEmptyFolder;
    bool goesDuringTheWalk;
  } const cases[] = {{"nothing in its place", false, false},
                     {"an empty folder in its place", true, false},
                     {"during the walk", true, true}};
  int left = 4;
  for (const auto& each : cases) {
    const auto goAway = [&] {
      unmount("home/inner");
      unmount("disk");
      if (each.leavesEmptyFolder) std::filesystem::create_directories(path("disk/music"));
    };
    std::once_flag gone;
    settings.walk = [&](const std::string& root, FolderVisitor& visitor) {
      if (each.goesDuringTheWalk) std::call_once(gone, goAway);
      walkFolder(root, visitor);
    };
    endScanner();
    if (!each.goesDuringTheWalk) goAway();
    std::filesystem::remove(path(fmt::format("home/{:04}.flac", --left)));
    ASSERT_TRUE(rescan()) << each.what;
    EXPECT_EQ(countIn("disk"), 6) << each.what;
    EXPECT_EQ(countIn("home/inner"), 5) << each.what;
    EXPECT_EQ(count(), 11 + left) << each.what << ": what is gone from the volume that is there";
    EXPECT_TRUE(isMarked("disk/music")) << each.what;
    EXPECT_EQ(scanner().lastSummary().offline, std::vector{path("disk/music")}) << each.what;
    mountMemory("disk", 6);
    mountMemory("home/inner", 5);
    ASSERT_TRUE(rescan()) << each.what;
    EXPECT_TRUE(scanner().lastSummary().offline.empty()) << each.what;
    EXPECT_EQ(count(), 11 + left) << each.what;
  }
}

TEST_F(ScanVolumes, AVolumeThatIsMountedAgainIsBroughtInStep) {
  mountMemory("disk", 3);
  ASSERT_TRUE(add("disk/music"));
  unmount("disk");
  scanner().start();
  while (!log.contains("👁️ Scanner daemon: watcher started")) std::this_thread::yield();
  writeMany("source/music", 5);
  mountFolder("source", "disk");
  EXPECT_TRUE(MainThread::instance().runUntil([this] { return count() == 5; }, 20s));
  EXPECT_TRUE(untilIdle());
  EXPECT_TRUE(log.contains("📂 Volume mounted: disk → scanning 1 music folder(s)"));
}

TEST_F(ScanVolumes, AShareThatHangsHoldsNothingUp) {
  writeMany("source/music", 20);
  writeMany("home", 4);
  std::filesystem::create_directories(path("share"));
  StallingFileSystem server(path("source"), path("share"));
  if (!server.isMounted()) GTEST_SKIP() << "this machine has no FUSE";
  // Set once: workers that are left behind may still look at it.
  constexpr int kNoMore = 1'000'000;
  std::atomic<int> read{kNoMore};
  extractor->onExtract = [&] {
    if (++read == 5) server.hang();
  };
  ASSERT_TRUE(add("home"));
  settings.rescanStall = settings.streamingStall = settings.fileStall = 300ms;

  // In the middle of reading files, first until it is cancelled and then until it is given up.
  for (const bool isCancelled : {true, false}) {
    if (isCancelled) settings.fileStall = 60s;
    endScanner();
    library.run("DELETE FROM tracks WHERE instr(filePath, '/share/') > 0");
    read = 0;
    if (isCancelled) {
      MusicFolders(library.database()).addFolder(path("share/music"));
      scanner().scan({path("share/music")});
      ASSERT_TRUE(MainThread::instance().runUntil([&] { return read >= 5; }, 20s));
      scanner().cancel();
      EXPECT_TRUE(untilIdle());
    } else {
      scanner().scan({path("share/music")});
      EXPECT_TRUE(untilIdle());
    }
    const ScanSummary summary = scanner().lastSummary();
    EXPECT_EQ(summary.cancelled, isCancelled);
    ASSERT_FALSE(summary.failures.empty());
    EXPECT_EQ(summary.failures[0].reason, "it does not answer");
    EXPECT_TRUE(isMarked("share/music"));
    // Those that were left behind come back after the scan's end, and change nothing.
    endScanner();
    const int before = count();
    read = kNoMore;
    server.release();
    settings.fileStall = 300ms;
    EXPECT_EQ(count(), before);
  }
  ASSERT_TRUE(rescan());
  ASSERT_EQ(countIn("share"), 20);

  // In the middle of a walk.
  const std::string share = path("share/music");
  std::atomic<bool> hasHung{false};
  settings.walk = [&](const std::string& root, FolderVisitor& visitor) {
    if (root == share) {
      server.hang();
      hasHung = true;
    }
    walkFolder(root, visitor);
  };
  endScanner();
  std::filesystem::remove(path("home/0000.flac"));
  ASSERT_TRUE(rescan());
  EXPECT_TRUE(hasHung);
  EXPECT_EQ(scanner().lastSummary().stalled, std::vector{share});
  EXPECT_EQ(countIn("share"), 20);
  EXPECT_EQ(countIn("home"), 3);
  EXPECT_TRUE(isMarked("share/music"));
  EXPECT_FALSE(isMarked("home"));
  // Before a scan it is offline, and a change that is told of it is not looked at.
  settings.walk = &walkFolder;
  endScanner();
  ASSERT_TRUE(rescan());
  EXPECT_EQ(scanner().lastSummary().offline, std::vector{path("share/music")});
  EXPECT_EQ(countIn("share"), 20);
  endScanner();
  server.release();
}

}  // namespace
}  // namespace velorin::test
