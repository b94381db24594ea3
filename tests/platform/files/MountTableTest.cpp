#include "platform/files/MountTable.h"

#include <gtest/gtest.h>

namespace velorin {
namespace {

// As the kernel writes it: a disk with a blank in its mount point, a share on top of an automount,
// a bind mount, an NTFS disk, and /mnt/a/deep hidden by what was mounted at /mnt/a later.
const MountTable kTable = MountTable::parse(
    "22 27 0:21 / /proc rw,relatime - proc proc rw\n"
    "27 1 254:0 / / rw,relatime shared:1 - ext4 /dev/vda rw\n"
    "40 27 8:17 / /media/ada/My\\040Disk\\134\\012 rw shared:7 master:2 - fuseblk /dev/sdb1 rw\n"
    "41 27 0:40 / /net/nas rw - autofs systemd-1 rw,fd=42\n"
    "42 41 0:41 /music /net/nas rw - nfs4 nas:/export/my\\040music rw\n"
    "43 27 0:50 / /home/ada/remote rw - fuse.sshfs ada@host:/srv rw\n"
    "45 27 8:33 / /mnt/a/deep rw - ext4 /dev/sdc1 rw\n"
    "46 27 8:49 / /mnt/a rw - vfat /dev/sdd1 rw\n"
    "47 27 0:60 / /idle rw - autofs /etc/auto.misc rw\n"
    "a line of another form\n"
    "48 27 0:61");

TEST(MountTable, FindsTheMountOfAPath) {
  const struct {
    const char* path;
    const char* source;
    bool isLocal;
  } cases[] = {
      {"/", "/dev/vda", true},
      {"/procs", "/dev/vda", true},
      {"/proc/self/", "proc", true},
      {"/media/ada/My Disk\\\n/x.flac", "/dev/sdb1", true},
      {"/media/ada/My Disk", "/dev/vda", true},
      {"/net/nas", "nas:/export/my music", false},
      {"/home/ada/remote/a/b", "ada@host:/srv", false},
      {"/mnt/a/deep/x", "/dev/sdd1", true},
      {"/idle/x", "/etc/auto.misc", false},
  };
  for (const auto& each : cases) {
    const Mount* const mount = kTable.mountOf(each.path);
    ASSERT_NE(mount, nullptr) << each.path;
    EXPECT_EQ(mount->source, each.source) << each.path;
    EXPECT_EQ(isLocal(*mount), each.isLocal) << each.path;
  }
  EXPECT_EQ(kTable.mounts().size(), 9u);
  EXPECT_EQ(kTable.mountOf("relative"), nullptr);
  EXPECT_EQ(MountTable().mountOf("/"), nullptr);
}

}  // namespace
}  // namespace velorin
