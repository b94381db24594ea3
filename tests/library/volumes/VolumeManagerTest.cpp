#include "library/volumes/VolumeManager.h"

#include <gtest/gtest.h>
#include <sys/mount.h>

#include <filesystem>
#include <fstream>
#include <future>

#include "foundation/Log.h"
#include "library/TestLibrary.h"
#include "library/volumes/MountObserver.h"
#include "support/MountNamespace.h"
#include "support/StallingFileSystem.h"

namespace velorin {
namespace {

using namespace std::chrono_literals;
using Paths = std::vector<std::string>;

const auto* const kNamespace =
    testing::AddGlobalTestEnvironment(new test::MountNamespace);  // NOLINT: gtest owns it

class VolumesTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!test::MountNamespace::mayMount()) GTEST_SKIP() << "this machine lets nobody mount";
    settings.fstab = folder / "fstab";
    settings.run = [this](const auto& arguments) {
      runs.push_back(arguments);
      return onRun && onRun();
    };
  }
  void TearDown() override {
    for (const std::string& point : points) ::umount2(point.c_str(), MNT_DETACH);
  }

  std::string makeFolder(const std::string& name) {
    std::filesystem::create_directories(folder / name);
    return folder / name;
  }
  void mountMemory(const std::string& point) {
    ASSERT_EQ(::mount("velorin-test", point.c_str(), "tmpfs", 0, "size=64k"), 0);
    points.push_back(point);
  }
  void unmount(const std::string& point) { ASSERT_EQ(::umount2(point.c_str(), MNT_DETACH), 0); }

  test::TemporaryFolder folder;
  Preferences preferences;
  VolumeManager::Settings settings;
  std::vector<Paths> runs;
  std::function<bool()> onRun;
  Paths points;
};

TEST_F(VolumesTest, AnEmptyMountPointIsNoMusicFolder) {
  const std::string disk = makeFolder("disk");
  const std::string plain = makeFolder("plain");
  const std::string linked = folder / "linked";
  mountMemory(disk);
  const std::string music = makeFolder("disk/music");
  std::filesystem::create_directory_symlink(music, linked);
  {
    VolumeManager volumes(preferences, settings);
    volumes.rememberVolumes({music, disk, plain, linked, folder / "none"});
    EXPECT_TRUE(volumes.isLocalVolume(music));
  }
  unmount(disk);
  makeFolder("disk/music");

  VolumeManager volumes(preferences, settings);
  const auto found = volumes.availability({disk, plain, music, linked, folder / "none"}, false);
  EXPECT_EQ(found.available, Paths{plain});
  EXPECT_EQ(found.offline, (Paths{disk, music, linked, folder / "none"}));
  volumes.rememberVolumes({music});
  EXPECT_FALSE(volumes.ensureAccess(music + "/song.flac"));
  volumes.folderAdded(music);  // the listener says that it is there
  EXPECT_EQ(volumes.availability({music}, false).available, Paths{music});

  mountMemory(disk);
  makeFolder("disk/music");
  EXPECT_EQ(volumes.availability({disk, linked}, false).offline, Paths{});
}

TEST_F(VolumesTest, MountsOnceInEightSeconds) {
  const std::string disk = makeFolder("my disk");
  mountMemory(disk);
  VolumeManager volumes(preferences, settings);
  volumes.rememberVolumes({disk});
  unmount(disk);
  EXPECT_EQ(volumes.availability({disk}, true).offline, Paths{disk});
  EXPECT_EQ(runs, std::vector<Paths>{}) << "nothing tells how to mount it";

  VolumeManager later(preferences, settings);
  std::ofstream(settings.fstab) << "# /dev/sdz1 x\ntmpfs " << folder.path().string()
                                << "/my\\040disk tmpfs noauto,user 0 0\n";
  EXPECT_EQ(later.availability({disk}, false).offline, Paths{disk});
  EXPECT_EQ(later.availability({disk}, true).offline, Paths{disk});
  EXPECT_EQ(later.availability({disk}, true).offline, Paths{disk});
  EXPECT_EQ(runs, (std::vector<Paths>{{"mount", disk}}));

  onRun = [&] { return ::mount("again", disk.c_str(), "tmpfs", 0, nullptr) == 0; };
  EXPECT_EQ(VolumeManager(preferences, settings).availability({disk}, true).available, Paths{disk});
}

TEST_F(VolumesTest, AVolumeUnderAnotherMountPointKeepsItsTracks) {
  const std::string image = folder / "image";
  const std::string first = makeFolder("first");
  const std::string second = makeFolder("second");
  const auto shell = [](const std::string& command) { return std::system(command.c_str()) == 0; };
  const auto mountDisk = [&](const std::string& point) {
    points.push_back(point);
    return shell(fmt::format("mount -o loop '{}' '{}' 2>/dev/null", image, point));
  };
  std::ofstream{image};
  std::filesystem::resize_file(image, 2 << 20);
  if (!shell(fmt::format("mkfs.ext4 -q '{}'", image)) || !mountDisk(first)) {
    GTEST_SKIP() << "this machine mounts no image of a disk";
  }
  const std::string music = makeFolder("first/my music");
  test::TestLibrary library;
  library.add({.path = music + "/a.flac"});
  VolumeManager volumes(preferences, settings);
  volumes.rememberVolumes({music});
  unmount(first);
  const log::Capture log;
  EXPECT_TRUE(volumes.migrateFolderPaths(FolderMove(library.database())).empty());
  EXPECT_TRUE(log.contains("⏭️ Skipping bookmark for " + music + ": volume not mounted"));

  // Another file system of the same kind is not it; the loop device is the same.
  ASSERT_TRUE(mountDisk(second));
  const auto moved = volumes.migrateFolderPaths(FolderMove(library.database()));
  ASSERT_EQ(moved.size(), 1u);
  const std::string now = second + "/my music";
  EXPECT_EQ(moved[0].path, now);
  EXPECT_EQ(library.column<std::string>("SELECT filePath FROM tracks"), Paths{now + "/a.flac"});
  EXPECT_TRUE(log.contains("📦 Volume path changed: " + music + " → " + now));
  EXPECT_TRUE(log.contains("✅ Migrated folder: " + music + " → " + now));
  const auto kept = *preferences.getMap(VolumeManager::kFolderBookmarksKey);
  EXPECT_EQ(kept.size(), 1u);
  EXPECT_EQ(kept.count(now), 1u);
  EXPECT_TRUE(volumes.migrateFolderPaths(FolderMove(library.database())).empty());

  unmount(second);
  ASSERT_TRUE(shell(fmt::format("mkfs.ext4 -qF '{}'", image)) && mountDisk(first));
  makeFolder("first/my music");
  EXPECT_TRUE(volumes.migrateFolderPaths(FolderMove(library.database())).empty());
}

TEST_F(VolumesTest, AShareThatHangsIsOfflineInTime) {
  const std::string share = makeFolder("share");
  makeFolder("source/music");
  test::StallingFileSystem server(folder / "source", share);
  if (!server.isMounted()) GTEST_SKIP() << "this machine has no FUSE";
  const std::string music = share + "/music";
  settings.patience = 10s;
  VolumeManager patient(preferences, settings);
  EXPECT_FALSE(patient.isLocalVolume(music));
  EXPECT_EQ(patient.availability({music}, false).available, Paths{music});

  server.hang();
  settings.patience = 50ms;
  VolumeManager hasty(preferences, settings);
  for (int i = 0; i < 3; ++i) EXPECT_FALSE(hasty.ensureAccess(music));
  EXPECT_FALSE(hasty.isLocalVolume(music));
  server.release();
  EXPECT_TRUE(patient.ensureAccess(music));
}

TEST_F(VolumesTest, AMountIsObserved) {
  const std::string disk = makeFolder("a b");
  std::promise<std::string> mounted;
  const MountObserver observer([&](const std::string& point) { mounted.set_value(point); });
  mountMemory(disk);
  auto point = mounted.get_future();
  ASSERT_EQ(point.wait_for(20s), std::future_status::ready);
  EXPECT_EQ(point.get(), disk);
}

TEST(RememberedVolume, TellsHowToMountItAgain) {
  const struct {
    const char* type;
    const char* source;
    const char* path;
    const char* url;
    const char* name;
  } cases[] = {
      {"cifs", "//nas/My Music", "/mnt/nas/a", "smb://nas/My Music", "nas"},
      {"nfs4", "nas:/export/music", "/mnt/nas", "nfs://nas/export/music", "nas"},
      {"nfs", "[fe80::1]:/x", "/mnt/nas", "nfs://[fe80::1]/x", "nas"},
      {"fuse.sshfs", "ada@nas:/srv", "/mnt/nas", "sftp://ada@nas/srv", "nas"},
      {"fuse.gvfsd-fuse", "gvfsd-fuse", "/mnt/nas/smb-share:server=n,share=m,user=u/x",
       "smb://u@n/m", "smb-share:server=n,share=m,user=u"},
      {"fuse.gvfsd-fuse", "gvfsd-fuse", "/mnt/nas/sftp:host=n,port=22", "sftp://n:22/",
       "sftp:host=n,port=22"},
      {"fuse.gvfsd-fuse", "gvfsd-fuse", "/mnt/nas", "", ""},
      {"ext4", "/dev/sda1", "/mnt/nas", "", "nas"},
  };
  for (const auto& each : cases) {
    const Mount mount{1, 1, "", "/", "/mnt/nas", each.type, each.source};
    EXPECT_EQ(remountURL(each.path, mount), each.url);
    EXPECT_EQ(volumeName(each.path, mount), each.name);
    const RememberedVolume volume = rememberedVolume(each.path, each.path, mount);
    EXPECT_EQ(RememberedVolume::fromPreference(volume.toPreference()), volume);
  }
}

}  // namespace
}  // namespace velorin
