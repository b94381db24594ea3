// Tracks on volumes that went away.
#include "engine/files/VolumeRemount.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <latch>
#include <thread>

#include "foundation/Log.h"
#include "platform/files/RememberedVolume.h"
#include "platform/files/RemountURLs.h"
#include "support/MountNamespace.h"
#include "support/StallingFileSystem.h"
#include "support/TemporaryFolder.h"

namespace velorin {
namespace {

using namespace std::chrono_literals;

const auto* const kNamespace = testing::AddGlobalTestEnvironment(new test::MountNamespace);

TEST(AwayVolume, IsToldByTheMountsAlone) {
  const MountTable table = MountTable::parse(
      "27 1 254:0 / / rw - ext4 /dev/vda rw\n"
      "41 27 0:40 / /net/nas rw - autofs systemd-1 rw\n"
      "43 27 8:17 / /mnt/there rw - ext4 /dev/sdb1 rw\n");
  test::TemporaryFolder folder;
  const std::string fstab = folder / "fstab";
  std::ofstream(fstab) << "# x /mnt/no none\nUUID=1 / ext4 x\n//nas/a /mnt/list\\040ed cifs users\n"
                          "/dev/sdb1 /mnt/there ext4 users\n";
  Preferences preferences;
  remountURLs::remember(preferences, {"/mnt/learnt", "learnt"}, "smb://nas/learnt");
  remountURLs::remember(preferences, {"/music", ""}, "nfs://nas/music");
  RememberedVolume disk;
  disk.mountPoint = "/mnt/disk";
  disk.uuid = "1234";
  RememberedVolume share;
  share.mountPoint = "/mnt/there";
  preferences.setMap(RememberedVolume::kBookmarksKey,
                     {{"/mnt/disk/Music", disk.toPreference()}, {"/music", share.toPreference()}});
  ::setenv("XDG_RUNTIME_DIR", "/run/user/7", 1);

  const struct {
    const char* path;
    AwayVolume volume;  ///< without a root: none
  } cases[] = {
      {"/home/ada/gone.flac", {}},
      {"/mnt/there/gone.flac", {}},
      {"/music/gone.flac", {}},
      {"/mnt/list ed2/a.flac", {}},
      {"/media/ada", {}},
      {"/mnt/list ed/a.flac", {.root = "/mnt/list ed", .name = "list ed"}},
      {"/net/nas/a.flac", {.root = "/net/nas", .name = "nas", .isAutomount = true}},
      {"/mnt/learnt/a/b.flac",
       {.root = "/mnt/learnt", .name = "learnt", .url = "smb://nas/learnt"}},
      {"/mnt/disk/Music/a.flac", {.root = "/mnt/disk", .name = "disk", .uuid = "1234"}},
      {"/media/ada/Stick/a.flac", {.root = "/media/ada/Stick", .name = "Stick"}},
      {"/run/user/7/gvfs/smb-share:server=n,share=m/a.flac",
       {.root = "/run/user/7/gvfs/smb-share:server=n,share=m",
        .name = "smb-share:server=n,share=m",
        .url = "smb://n/m",
        .isDesktopShare = true}},
  };
  for (const auto& each : cases) {
    const auto found = awayVolumeOf(each.path, table, fstab, &preferences).value_or(AwayVolume{});
    EXPECT_EQ(found.root, each.volume.root) << each.path;
    EXPECT_EQ(found.name, each.volume.name) << each.path;
    EXPECT_EQ(found.url, each.volume.url) << each.path;
    EXPECT_EQ(found.uuid, each.volume.uuid) << each.path;
    EXPECT_EQ(found.isAutomount, each.volume.isAutomount) << each.path;
    EXPECT_EQ(found.isDesktopShare, each.volume.isDesktopShare) << each.path;
  }
}

/// A share that was seen at `root` once and is away.
struct Away {
  Away() { remountURLs::remember(preferences, {root}, "smb://nas/music"); }

  test::TemporaryFolder folder;
  const std::string root = folder / "nas";
  const std::string track = root + "/a.flac";
  Preferences preferences;
  VolumeRemount::Clock::time_point now{};
  int attempts = 0;
  VolumeRemount::Settings settings{.fstab = folder / "fstab",
                                   .run = [this](const auto&) { return ++attempts < 0; },
                                   .now = [this] { return now; },
                                   .pollInterval = 5ms};
  log::Capture log;
};

TEST(VolumeRemount, MountsByTheDesktopAtMostOnceInSixSeconds) {
  Away away;
  const std::string program = away.folder / "gio";
  std::ofstream(program) << "#!/bin/sh\n[ \"$*\" = 'mount -- smb://nas/music' ] && /bin/mkdir -p '"
                         << away.root << "' && : > '" << away.track << "'\n";
  std::filesystem::permissions(program, std::filesystem::perms::owner_all);
  const std::string path = std::getenv("PATH");
  ::setenv("PATH", away.folder.path().c_str(), 1);
  away.settings.run = {};
  away.settings.pollInterval = 200ms;
  VolumeRemount remount(away.settings);
  remount.setPreferences(&away.preferences);
  EXPECT_TRUE(remount.resolveTrackURL(away.track));
  ::setenv("PATH", path.c_str(), 1);
  EXPECT_TRUE(away.log.contains("🔁 Attempting to remount volume for playback: smb://nas/music"));

  std::filesystem::remove_all(away.root);
  away.now += 5999ms;
  EXPECT_FALSE(remount.remountVolume(away.track));
  away.now += 1ms;
  EXPECT_TRUE(remount.remountVolume(away.root + "/another.flac"));
}

TEST(VolumeRemount, WaitsOnlyForWhatMayCome) {
  Away away;
  const std::string missing = away.folder / "missing.flac";
  std::latch blocked(1);
  auto settings = away.settings;
  settings.pollInterval = 1h;
  settings.run = [&](const auto&) {
    ++away.attempts;
    return false;
  };
  VolumeRemount failing(settings);
  failing.setPreferences(&away.preferences);
  EXPECT_FALSE(failing.resolveTrackURL(missing)) << "of no volume: nothing to wait for";
  EXPECT_EQ(away.attempts, 0);
  EXPECT_FALSE(failing.resolveTrackURL(away.track)) << "the attempt failed";
  EXPECT_EQ(away.attempts, 1);

  std::atomic<bool> ran{false};
  settings.run = [&](const auto&) {
    blocked.wait();
    ran = true;
    return true;
  };
  {
    VolumeRemount slow(settings);
    slow.setPreferences(&away.preferences);
    int asked = 0;
    EXPECT_FALSE(slow.resolveTrackURL(away.track, [&] { return ++asked < 3; })) << "was stopped";
    slow.setPreferences(nullptr);
  }
  blocked.count_down();
  while (!ran) std::this_thread::yield();

  // No URL and no other way: said once, and nothing is waited for.
  VolumeRemount unknown(settings);
  EXPECT_FALSE(unknown.resolveTrackURL("/media/ada/Stick/a.flac"));
  EXPECT_TRUE(away.log.contains("⚠️ No remount URL found for volume: Stick"));
}

TEST(VolumeRemount, AFileSystemThatHangsHoldsNobodyUp) {
  test::TemporaryFolder folder;
  std::filesystem::create_directory(folder / "shown");
  std::filesystem::create_directory(folder / "mounted");
  test::StallingFileSystem share(folder / "shown", folder / "mounted");
  if (!share.isMounted()) GTEST_SKIP() << "no right to mount";
  share.hang();
  VolumeRemount remount;
  int asked = 0;
  EXPECT_FALSE(remount.resolveTrackURL(folder / "mounted/a.flac", [&] { return ++asked < 3; }));
  EXPECT_GE(asked, 3);
}

}  // namespace
}  // namespace velorin
