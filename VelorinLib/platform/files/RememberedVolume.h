// What is remembered of the volume a music folder lies on, so that it is known again after it was
// away: at the same place, or under another mount point.
#pragma once

#include <optional>
#include <string>

#include "foundation/Preferences.h"
#include "platform/files/MountTable.h"

namespace velorin {

/// Functions of values; any thread but the render thread. Only `rememberedVolume` looks at the
/// disk, and only at file systems of this machine.
struct RememberedVolume {
  /// Under which the preference store keeps a map from music folder to its volume.
  static constexpr const char* kBookmarksKey = "musicFolderBookmarks";

  std::string mountPoint;
  /// The folder's place below the mount point, "" for the mount point itself. Empty when the folder
  /// leads to the volume through a symbolic link, which is the listener's to change.
  std::optional<std::string> relativePath;
  std::string root;  ///< see Mount
  std::string fileSystem;
  std::string source;
  std::string uuid;          ///< as under /dev/disk/by-uuid; may be empty
  std::string fileSystemId;  ///< of file systems that keep one on the disk; may be empty

  bool operator==(const RememberedVolume&) const = default;

  /// As kept in the preference store: a map of these fields by name.
  PreferenceValue toPreference() const;
  static std::optional<RememberedVolume> fromPreference(const PreferenceValue& value);
};

/// The volume of a folder that is held by this mount. realPath: the folder without symbolic links.
RememberedVolume rememberedVolume(const std::string& folder, const std::string& realPath,
                                  const Mount& mount);

/// True when the mount shows the very volume: the same UUID or file-system id where the volume has
/// one, the same share of the same server for a network file system. A device name proves nothing,
/// since the next disk plugged in gets it.
bool shows(const Mount& mount, const RememberedVolume& volume);

/// What "gio mount" takes to bring the folder's volume back, such as "smb://nas/music"; empty for
/// a volume that has no such address.
std::string remountURL(const std::string& realPath, const Mount& mount);

/// What a listener calls the volume: the last component of its mount point, or the share's folder
/// among those that the desktop mounts under one point; empty for the root file system.
std::string volumeName(const std::string& realPath, const Mount& mount);

}  // namespace velorin
