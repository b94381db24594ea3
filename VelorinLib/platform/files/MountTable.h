// Which file systems are mounted where, as this process sees them.
//
// Source: /proc/self/mountinfo, proc_pid_mountinfo(5). Reading it touches no mounted file system:
// it answers at once even where a share hangs.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace velorin {

struct Mount {
  int id = 0;              ///< may be used again for another mount after this one is gone
  int parentId = 0;        ///< the mount that holds the mount point
  std::string device;      ///< "major:minor"
  std::string root;        ///< the folder of the file system that is shown, mostly "/"
  std::string point;       ///< an absolute path, without '/' at its end unless it is "/"
  std::string fileSystem;  ///< such as "ext4", "nfs4", "fuse.sshfs", "fuseblk"
  std::string source;      ///< such as "/dev/sdb1", "//nas/music"; anything for pseudo systems

  bool operator==(const Mount&) const = default;
};

/// False for network and FUSE file systems, and for an automount that has mounted nothing yet.
/// A FUSE driver on a disk of this machine (type "fuseblk", such as ntfs-3g) is local.
bool isLocal(const Mount& mount) noexcept;

/// True for the automounter's own mount, which a touch turns into the file system meant.
bool isAutomount(const Mount& mount) noexcept;

/// A field of mountinfo or fstab(5) as it is meant: blanks, tabs, newlines and backslashes stand
/// there as "\040" and so on.
std::string unescapeMountField(std::string_view field);

/// A value, any thread but the render thread.
class MountTable {
 public:
  MountTable() = default;

  /// Reads a text in the form of mountinfo. Lines of another form are passed over.
  static MountTable parse(std::string_view mountInfo);

  /// The mounts of this moment; none where /proc cannot be read.
  static MountTable current();

  const std::vector<Mount>& mounts() const noexcept { return _mounts; }

  /// The mount that holds an absolute path, found as the kernel would walk there: a mount on top
  /// of others hides them and what is mounted below them. Symbolic links are not followed, and
  /// "." and ".." must not occur. Null when none is known. Valid as long as the table.
  const Mount* mountOf(std::string_view path) const;

 private:
  std::vector<Mount> _mounts;
};

}  // namespace velorin
