#include "library/volumes/VolumeManager.h"

#include <algorithm>
#include <filesystem>
#include <thread>

#include "foundation/Log.h"
#include "foundation/Text.h"
#include "library/queries/PathPrefix.h"
#include "platform/files/RunProgram.h"
#include "platform/files/VolumeMounting.h"

namespace velorin {
namespace {

constexpr std::chrono::seconds kLongestMount{10};
// What mounts tells success a little before the folder can be read.
constexpr std::chrono::milliseconds kSettling{250};

std::string shown(const std::string& path) {
  return text::escapeForTerminal(path);
}

/// The mount that holds the path, when it is not the one beneath the volume's place.
const Mount* mountedVolume(const MountTable& table, const RememberedVolume& volume,
                           const std::string& path) {
  const bool isBelow = path == volume.mountPoint || PathPrefix(volume.mountPoint).contains(path);
  const Mount* const mount = table.mountOf(isBelow ? path : volume.mountPoint);
  return mount && mount->point.size() >= volume.mountPoint.size() ? mount : nullptr;
}

/// The mount points that can be seen inside the folder.
std::vector<std::string> mountedInside(const MountTable& table, const std::string& folder) {
  const PathPrefix inside(folder);
  std::vector<std::string> points;
  for (const Mount& mount : table.mounts()) {
    if (!inside.contains(mount.point) || isAutomount(mount)) continue;
    const Mount* const visible = table.mountOf(mount.point);
    if (visible != nullptr && visible->id == mount.id) points.push_back(mount.point);
  }
  return points;
}

bool holdsAnything(const std::string& folder) {
  std::error_code failure;
  const std::filesystem::directory_iterator entries(folder, failure);
  return !failure && entries != std::filesystem::directory_iterator();
}

PreferenceMap mapOf(const Preferences& preferences, const char* key) {
  return preferences.getMap(key).value_or(PreferenceMap{});
}

}  // namespace

VolumeManager::VolumeManager(Preferences& preferences) : VolumeManager(preferences, Settings{}) {}

VolumeManager::VolumeManager(Preferences& preferences, Settings settings)
    : _preferences(preferences), _settings([&] {
        if (!settings.run) {
          settings.run = [](const auto& arguments) { return runProgram(arguments, kLongestMount); };
        }
        return std::move(settings);
      }()) {}

VolumeResolving::Availability VolumeManager::availability(const std::vector<std::string>& folders,
                                                          bool attemptRemount) {
  Availability sorted;
  const auto isFolder = [&](const std::string& folder) {
    const PathProbe::Kind kind = reach(folder).kind;
    if (kind == PathProbe::Kind::noAnswer) sorted.silent.push_back(folder);
    return kind == PathProbe::Kind::folder;
  };
  for (const std::string& folder : folders) {
    const bool isThere =
        isFolder(folder) || (attemptRemount && remount(folder) && isFolder(folder));
    (isThere ? sorted.available : sorted.offline).push_back(folder);
  }
  return sorted;
}

bool VolumeManager::ensureAccess(const std::string& path) {
  const auto kind = reach(path).kind;
  return kind == PathProbe::Kind::folder || kind == PathProbe::Kind::other;
}

PathProbe::Answer VolumeManager::reach(const std::string& path) {
  const auto volume = volumeOf(path);
  if (!volume) return _probe.ask(path, _settings.patience);
  const PathProbe::Answer nothing{PathProbe::Kind::nothing, {}};
  // A path whose volume is away is not touched: it may be the place of a share that hangs.
  const MountTable before = MountTable::current();
  const Mount* const mount = mountedVolume(before, *volume, path);
  if (!mount) return nothing;
  const PathProbe::Answer answer = _probe.ask(path, _settings.patience);
  if (!isAutomount(*mount)) return answer;
  const MountTable after = MountTable::current();
  const Mount* const mounted = mountedVolume(after, *volume, path);
  return mounted && !isAutomount(*mounted) ? answer : nothing;
}

bool VolumeManager::isLocalVolume(const std::string& path) {
  MountTable table = MountTable::current();
  const Mount* mount = table.mountOf(path);
  // What lies on a network volume as it is written needs no touch.
  if (mount && !isLocal(*mount) && !isAutomount(*mount)) return false;
  const PathProbe::Answer answer = _probe.ask(path, _settings.patience);
  if (answer.kind == PathProbe::Kind::noAnswer) return false;
  table = MountTable::current();
  mount = table.mountOf(answer.realPath.empty() ? path : answer.realPath);
  return !mount || isLocal(*mount);
}

std::map<std::string, RememberedVolume> VolumeManager::bookmarks() const {
  std::map<std::string, RememberedVolume> volumes;
  for (const auto& [folder, value] : mapOf(_preferences, kFolderBookmarksKey)) {
    if (auto volume = RememberedVolume::fromPreference(value)) volumes.emplace(folder, *volume);
  }
  return volumes;
}

std::optional<RememberedVolume> VolumeManager::volumeOf(const std::string& path) const {
  std::optional<RememberedVolume> nearest;
  std::size_t length = 0;
  for (auto& [folder, volume] : bookmarks()) {
    const bool holds = folder == path || PathPrefix(folder).contains(path);
    if (holds && folder.size() >= length) {
      length = folder.size();
      nearest = volume;
    }
  }
  return nearest;
}

void VolumeManager::rememberVolumes(const std::vector<std::string>& folders) {
  for (const std::string& folder : folders) remember(folder, reach(folder));
}

void VolumeManager::remember(const std::string& folder, const PathProbe::Answer& answer) {
  if (answer.kind != PathProbe::Kind::folder) return;
  const MountTable table = MountTable::current();
  if (const Mount* const mount = table.mountOf(answer.realPath)) {
    remember(folder, answer.realPath, *mount);
  }
}

void VolumeManager::remember(const std::string& folder, const std::string& realPath,
                             const Mount& mount) {
  const RememberedVolume volume = rememberedVolume(folder, realPath, mount);
  const std::string url = remountURL(realPath, mount);
  const MutexLock lock(_storeMutex);
  PreferenceMap volumes = mapOf(_preferences, kFolderBookmarksKey);
  volumes[folder] = volume.toPreference();
  _preferences.setMap(kFolderBookmarksKey, std::move(volumes));
  // Mount points are told without symbolic links.
  if (folder == realPath) rememberInside(folder, MountTable::current());
  if (url.empty()) return;
  if (!remountURLs::remember(_preferences, {folder, volumeName(realPath, mount)}, url)) return;
  log::line("📌 Cached remount URL for {}: {}", shown(folder), shown(url));
}

void VolumeManager::rememberInside(const std::string& folder, const MountTable& table) {
  std::vector<std::string> points = mountedInside(table, folder);
  for (std::string& before : volumesInside(folder)) {
    if (std::ranges::find(points, before) == points.end() && !holdsAnything(before)) {
      points.push_back(std::move(before));
    }
  }
  PreferenceMap map = mapOf(_preferences, kInnerVolumesKey);
  if (points.empty() && !map.contains(folder)) return;
  PreferenceList list;
  for (std::string& point : points) list.push_back({std::move(point)});
  map.erase(folder);
  if (!list.empty()) map[folder] = {std::move(list)};
  _preferences.setMap(kInnerVolumesKey, std::move(map));
}

std::vector<std::string> VolumeManager::volumesInside(const std::string& folder) const {
  std::vector<std::string> points;
  const PreferenceMap map = mapOf(_preferences, kInnerVolumesKey);
  const auto entry = map.find(folder);
  const auto* const list =
      entry == map.end() ? nullptr : std::get_if<PreferenceList>(&entry->second.value);
  if (list == nullptr) return points;
  for (const PreferenceValue& each : *list) {
    if (const auto* const point = std::get_if<std::string>(&each.value)) points.push_back(*point);
  }
  return points;
}

std::vector<std::string> VolumeManager::missingInside(const std::vector<std::string>& folders) {
  const MountTable table = MountTable::current();
  std::vector<std::string> missing;
  for (const std::string& folder : folders) {
    const auto mounted = mountedInside(table, folder);
    for (std::string& point : volumesInside(folder)) {
      if (std::ranges::find(mounted, point) == mounted.end()) missing.push_back(std::move(point));
    }
  }
  return missing;
}

void VolumeManager::folderAdded(const std::string& folder) {
  folderRemoved(folder);
  remember(folder, _probe.ask(folder, _settings.patience));
}

void VolumeManager::folderRemoved(const std::string& folder) {
  remountURLs::forget(_preferences, folder);
  const MutexLock lock(_storeMutex);
  for (const char* const key : {kFolderBookmarksKey, kInnerVolumesKey}) {
    PreferenceMap map = mapOf(_preferences, key);
    if (map.erase(folder) > 0) _preferences.setMap(key, std::move(map));
  }
}

std::string VolumeManager::newPathOf(const RememberedVolume& volume, const MountTable& table) {
  if (!volume.relativePath) return {};
  for (const Mount& mount : table.mounts()) {
    if (mount.point == volume.mountPoint || !shows(mount, volume)) continue;
    const std::string path = volume.relativePath->empty()
                                 ? mount.point
                                 : PathPrefix(mount.point).begin() + *volume.relativePath;
    const Mount* const holder = table.mountOf(path);
    if (!holder || holder->id != mount.id) continue;  // hidden below another mount
    if (_probe.ask(path, _settings.patience).kind == PathProbe::Kind::folder) return path;
  }
  return {};
}

std::vector<VolumeManager::ResolvedBookmark> VolumeManager::resolveBookmarks() {
  std::vector<ResolvedBookmark> resolved;
  const MountTable table = MountTable::current();
  for (const auto& [folder, volume] : bookmarks()) {
    const bool isMounted = mountedVolume(table, volume, folder) != nullptr;
    if (isMounted && reach(folder).kind == PathProbe::Kind::folder) {
      resolved.push_back({folder, folder, true, false});
    } else if (const std::string path = newPathOf(volume, table); !path.empty()) {
      resolved.push_back({folder, path, true, true});
    } else if (isMounted) {
      resolved.push_back({folder, folder, false, false});
    } else {
      log::line("⏭️ Skipping bookmark for {}: volume not mounted", shown(folder));
    }
  }
  return resolved;
}

std::vector<VolumeManager::ResolvedBookmark> VolumeManager::migrateFolderPaths(
    const FolderMove& folderMove) {
  std::vector<ResolvedBookmark> moved;
  for (const ResolvedBookmark& each : resolveBookmarks()) {
    if (!each.accessGranted) {
      log::line("⚠️ Bookmark for {}: access not granted (volume may be unmounted)",
                shown(each.originalPath));
    }
    if (!each.pathChanged) continue;
    const std::string from = shown(each.originalPath);
    const std::string to = shown(each.path);
    log::line("📦 Volume path changed: {} → {}", from, to);
    try {
      folderMove.migrateFolderPath(each.originalPath, each.path);
    } catch (const VelorinDatabaseError& error) {
      log::line("⚠️ Failed to migrate folder path: {}", error.message);
      continue;
    }
    moveEntries(each.originalPath, each.path);
    remember(each.path, _probe.ask(each.path, _settings.patience));
    log::line("✅ Migrated folder: {} → {}", from, to);
    moved.push_back(each);
  }
  return moved;
}

void VolumeManager::moveEntries(const std::string& oldPath, const std::string& newPath) {
  remountURLs::move(_preferences, oldPath, newPath);
  const MutexLock lock(_storeMutex);
  // What is remembered of the old place would make the new one seem away.
  for (const char* const key : {kFolderBookmarksKey, kInnerVolumesKey}) {
    PreferenceMap map = mapOf(_preferences, key);
    if (map.erase(oldPath) > 0) _preferences.setMap(key, std::move(map));
  }
}

bool VolumeManager::mayAttemptRemount(const std::string& folder) {
  const auto now = std::chrono::steady_clock::now();
  const MutexLock lock(_remountMutex);
  const auto last = _remountAttemptAt.find(folder);
  if (last != _remountAttemptAt.end() && now - last->second < kRemountInterval) return false;
  _remountAttemptAt[folder] = now;
  return true;
}

bool VolumeManager::remount(const std::string& folder) {
  if (!mayAttemptRemount(folder)) return false;
  const auto volume = volumeOf(folder).value_or(RememberedVolume{});
  const std::string& point = volume.mountPoint;
  std::string url = remountURLs::of(_preferences, folder);
  if (url.empty()) url = remountURLs::of(_preferences, point.substr(point.rfind('/') + 1));
  const auto attempts = mountCommands({point, std::move(url), volume.uuid}, _settings.fstab);
  if (!std::ranges::any_of(attempts, _settings.run)) return false;
  std::this_thread::sleep_for(kSettling);
  return true;
}

}  // namespace velorin
