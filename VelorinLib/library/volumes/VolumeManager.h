// Which music folders are there now, and what to do about those that are not.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "foundation/Mutex.h"
#include "foundation/Preferences.h"
#include "library/queries/FolderMove.h"
#include "library/volumes/VolumeResolving.h"
#include "platform/files/PathProbe.h"
#include "platform/files/RememberedVolume.h"
#include "platform/files/RemountURLs.h"

namespace velorin {

/// Remembers the volume of each music folder in the preference store: what it is in
/// "musicFolderBookmarks", a map from folder to RememberedVolume, and how it can be mounted in
/// "musicFolderRemountURLs", where each URL stands under the folder and under the volume's name.
///
/// "musicFolderInnerVolumes" tells for each folder which volumes are mounted inside it; one that is
/// gone is remembered until something else lies in its place.
///
/// A folder whose volume is remembered is there when something is mounted at the volume's place
/// and the folder is in it; without a remembered volume the plain path decides. So the empty mount
/// point of a disk that is away is never taken for an empty folder.
///
/// Any thread but the main thread and the render thread. Touches of the file system are bounded by
/// `Settings::patience`, mounting by ten seconds.
class VolumeManager final : public VolumeResolving {
 public:
  static constexpr const char* kFolderBookmarksKey = RememberedVolume::kBookmarksKey;
  static constexpr const char* kFolderRemountURLsKey = remountURLs::kKey;
  static constexpr const char* kInnerVolumesKey = "musicFolderInnerVolumes";
  static constexpr std::chrono::seconds kRemountInterval{8};

  struct Settings {
    std::chrono::milliseconds patience{5000};
    std::string fstab = "/etc/fstab";
    /// Runs a program; true when it succeeded. Empty: the real thing, see RunProgram.h.
    std::function<bool(const std::vector<std::string>& arguments)> run;
  };

  explicit VolumeManager(Preferences& preferences);
  VolumeManager(Preferences& preferences, Settings settings);

  Availability availability(const std::vector<std::string>& folders, bool attemptRemount) override;
  std::vector<std::string> missingInside(const std::vector<std::string>& folders) override;
  bool isLocalVolume(const std::string& path) override;
  /// The path may be a folder or a file, a music folder or something inside one.
  bool ensureAccess(const std::string& path) override;

  /// Takes down the volumes of the folders that are there, and how to mount them again. For music
  /// folders after a volume was mounted.
  void rememberVolumes(const std::vector<std::string>& folders);
  /// The folder stands where the listener says, whatever was remembered.
  void folderAdded(const std::string& folder);
  void folderRemoved(const std::string& folder);

  struct ResolvedBookmark {
    std::string originalPath;
    std::string path;  ///< where the folder is now
    bool accessGranted = false;
    bool pathChanged = false;
  };
  /// Looks for each remembered folder, also on volumes that came back under another mount point.
  /// Those that are not mounted anywhere are left out, with a log line.
  std::vector<ResolvedBookmark> resolveBookmarks();

  /// Gives the library and the preference store the new paths of folders that moved with their
  /// volumes. A folder that cannot be moved stays as it is, with a log line, for the next call.
  /// Returns the folders that moved. For start-up, and after a volume was mounted.
  std::vector<ResolvedBookmark> migrateFolderPaths(const FolderMove& folderMove);

 private:
  std::optional<RememberedVolume> volumeOf(const std::string& path) const;
  std::map<std::string, RememberedVolume> bookmarks() const;
  PathProbe::Answer reach(const std::string& path);
  std::string newPathOf(const RememberedVolume& volume, const MountTable& table);
  bool remount(const std::string& folder);
  bool mayAttemptRemount(const std::string& folder);
  void remember(const std::string& folder, const PathProbe::Answer& answer);
  void remember(const std::string& folder, const std::string& realPath, const Mount& mount);
  void rememberInside(const std::string& folder, const MountTable& table) REQUIRES(_storeMutex);
  std::vector<std::string> volumesInside(const std::string& folder) const;
  void moveEntries(const std::string& oldPath, const std::string& newPath);

  Preferences& _preferences;
  const Settings _settings;
  PathProbe _probe;
  /// Held while an entry of the preference store is changed.
  Mutex _storeMutex;
  Mutex _remountMutex;
  std::map<std::string, std::chrono::steady_clock::time_point> _remountAttemptAt
      GUARDED_BY(_remountMutex);
};

}  // namespace velorin
