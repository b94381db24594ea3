#include "engine/files/AwayVolume.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cstdlib>
#include <vector>

#include "platform/files/RememberedVolume.h"
#include "platform/files/RemountURLs.h"
#include "platform/files/VolumeMounting.h"

namespace velorin {
namespace {

constexpr std::string_view kDesktopShares = "fuse.gvfsd-fuse";

bool holds(const std::string& folder, const std::string& path) {
  return !folder.empty() && path.starts_with(folder) &&
         (path.size() == folder.size() || path[folder.size()] == '/');
}

/// The folder so many components below another that the path goes through; empty when it does not
/// go so deep.
std::string folderBelow(const std::string& base, const std::string& path, int components) {
  if (!holds(base, path)) return {};
  std::size_t end = base.size();
  for (int i = 0; i < components; ++i) {
    if (end + 1 >= path.size()) return {};
    end = std::min(path.find('/', end + 1), path.size());
  }
  return path.substr(0, end);
}

bool isMounted(const MountTable& table, const std::string& root) {
  const Mount* const mount = table.mountOf(root);
  return mount != nullptr && mount->point.size() >= root.size();
}

std::string nameOf(const std::string& root) {
  return root.substr(root.rfind('/') + 1);
}

std::optional<AwayVolume> desktopShareOf(const std::string& path) {
  const char* const runtime = std::getenv("XDG_RUNTIME_DIR");
  for (const std::string& base : {runtime ? fmt::format("{}/gvfs", runtime) : std::string(),
                                  fmt::format("/run/user/{}/gvfs", ::getuid())}) {
    const std::string root = base.empty() ? base : folderBelow(base, path, 1);
    if (root.empty()) continue;
    Mount mount;
    mount.point = base;
    mount.fileSystem = kDesktopShares;
    AwayVolume volume{.root = root, .name = nameOf(root), .isDesktopShare = true};
    volume.url = remountURL(root, mount);
    return volume;
  }
  return std::nullopt;
}

/// Where udisks mounts what is plugged in.
std::string removableRootOf(const std::string& path) {
  for (const char* const base : {"/media", "/run/media"}) {
    if (std::string root = folderBelow(base, path, 2); !root.empty()) return root;
  }
  return {};
}

/// The volume remembered for the nearest music folder that holds the path.
struct Bookmark {
  std::string folder;
  RememberedVolume volume;
};
Bookmark bookmarkOf(const std::string& path, const Preferences& preferences) {
  Bookmark nearest;
  const PreferenceMap map =
      preferences.getMap(RememberedVolume::kBookmarksKey).value_or(PreferenceMap{});
  for (const auto& [folder, value] : map) {
    if (!holds(folder, path) || folder.size() < nearest.folder.size()) continue;
    if (auto volume = RememberedVolume::fromPreference(value)) nearest = {folder, *volume};
  }
  return nearest;
}

/// The deepest mount point with a known URL. The URLs of music folders are the bookmarks' part.
std::string learntRootOf(const std::string& path, const Preferences& preferences) {
  const PreferenceMap bookmarks =
      preferences.getMap(RememberedVolume::kBookmarksKey).value_or(PreferenceMap{});
  std::string deepest;
  for (const std::string& root : remountURLs::folders(preferences)) {
    if (holds(root, path) && root.size() > deepest.size() && !bookmarks.contains(root)) {
      deepest = root;
    }
  }
  return deepest;
}

}  // namespace

std::optional<AwayVolume> awayVolumeOf(const std::string& path, const MountTable& table,
                                       const std::string& fstab, const Preferences* preferences) {
  if (const Mount* const mount = table.mountOf(path); mount && isAutomount(*mount)) {
    return AwayVolume{.root = mount->point, .name = nameOf(mount->point), .isAutomount = true};
  }
  if (auto share = desktopShareOf(path)) return share;

  const Bookmark bookmark = preferences ? bookmarkOf(path, *preferences) : Bookmark{};
  const std::string learnt = preferences ? learntRootOf(path, *preferences) : std::string();
  for (const std::string& root :
       {fstabPointOf(fstab, path), bookmark.volume.mountPoint, learnt, removableRootOf(path)}) {
    if (root.empty() || isMounted(table, root)) continue;
    AwayVolume volume{.root = root, .name = nameOf(root)};
    if (root == bookmark.volume.mountPoint) volume.uuid = bookmark.volume.uuid;
    for (const std::string& place : {root, bookmark.folder, volume.name}) {
      if (preferences && volume.url.empty()) volume.url = remountURLs::of(*preferences, place);
    }
    return volume;
  }
  return std::nullopt;
}

std::string rootOfVolume(const std::string& realPath, const Mount& mount) {
  if (mount.fileSystem != kDesktopShares) return mount.point;
  return folderBelow(mount.point, realPath, 1);
}

}  // namespace velorin
