// Which volume a path belongs to that is not mounted now.
#pragma once

#include <optional>
#include <string>

#include "foundation/Preferences.h"
#include "platform/files/MountTable.h"

namespace velorin {

struct AwayVolume {
  std::string root = {};        ///< where it is to appear
  std::string name = {};        ///< what a listener calls it
  std::string url = {};         ///< what "gio mount" takes; may be empty
  std::string uuid = {};        ///< of a disk; may be empty
  bool isAutomount = false;     ///< a touch of the path mounts it
  bool isDesktopShare = false;  ///< one of those that the desktop mounts below one point: away only
                                ///< where `root` is not there
};

/// Nothing for a path on a volume that is there, and for one that was never known to be a volume's:
/// a file that was deleted from a disk of this machine is no reason to mount anything.
///
/// A volume is known to be away by the mounts alone: an automount with nothing on top of it; a
/// mount point of fstab(5), or of a volume remembered for a music folder, or one whose URL was
/// learnt, with nothing mounted at it; a path where the desktop mounts shares or disks. No path of
/// a volume is touched, for it may hang. `preferences` may be null. Any thread but the render
/// thread.
std::optional<AwayVolume> awayVolumeOf(const std::string& path, const MountTable& table,
                                       const std::string& fstab, const Preferences* preferences);

/// The root of the volume that the mount shows, as AwayVolume has it.
std::string rootOfVolume(const std::string& realPath, const Mount& mount);

}  // namespace velorin
