// How a volume that is away can be brought back by whoever runs this program.
#pragma once

#include <string>
#include <vector>

namespace velorin {

/// The mount point in a file of the form of fstab(5) that would hold the path, the deepest of
/// several; empty for none but the root file system's. Touches nothing but that file.
std::string fstabPointOf(const std::string& fstab, const std::string& path);

/// What is known of the volume; what is empty is not known.
struct VolumeAddress {
  std::string mountPoint;
  std::string url;   ///< see remountURL()
  std::string uuid;  ///< of a disk
};

/// Programs with their arguments, to be tried in this order until one succeeds: `mount` where the
/// fstab lets this user do it, `gio mount` for what the desktop mounts.
std::vector<std::vector<std::string>> mountCommands(const VolumeAddress& volume,
                                                    const std::string& fstab);

}  // namespace velorin
