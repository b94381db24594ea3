#include "platform/files/RememberedVolume.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/vfs.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>
#include <map>

namespace velorin {
namespace {

namespace fs = std::filesystem;

constexpr const char* kDisksByUuid = "/dev/disk/by-uuid";
constexpr std::string_view kGvfs = "fuse.gvfsd-fuse";

struct Field {
  const char* key;
  std::string RememberedVolume::*member;
};
constexpr std::array<Field, 6> kFields{{{"mountPoint", &RememberedVolume::mountPoint},
                                        {"root", &RememberedVolume::root},
                                        {"fileSystem", &RememberedVolume::fileSystem},
                                        {"source", &RememberedVolume::source},
                                        {"uuid", &RememberedVolume::uuid},
                                        {"fileSystemId", &RememberedVolume::fileSystemId}}};
constexpr const char* kRelativePath = "relativePath";

/// The path below a mount point, without a '/' at its beginning; empty when it is not below.
std::optional<std::string> below(const std::string& point, const std::string& path) {
  if (path == point) return "";
  const std::string prefix = point == "/" ? point : point + "/";
  if (!path.starts_with(prefix)) return std::nullopt;
  return path.substr(prefix.size());
}

/// The name that udev gives the device by the UUID of its file system.
std::string uuidOf(const Mount& mount) {
  std::error_code error;
  for (fs::directory_iterator entry(kDisksByUuid, error), end; !error && entry != end;
       entry.increment(error)) {
    struct stat status {};
    if (::stat(entry->path().c_str(), &status) != 0 || !S_ISBLK(status.st_mode)) continue;
    if (mount.device == fmt::format("{}:{}", major(status.st_rdev), minor(status.st_rdev))) {
      return entry->path().filename();
    }
  }
  return {};
}

/// The id that statfs() tells, of the file systems that make it from what is on the disk. Others
/// make it of the device's number, which the next disk may get.
std::string fileSystemIdOf(const Mount& mount) {
  constexpr std::array<std::string_view, 5> kKeepers{"ext2", "ext3", "ext4", "btrfs", "zfs"};
  if (std::ranges::find(kKeepers, mount.fileSystem) == kKeepers.end()) return {};
  struct statfs status {};
  if (::statfs(mount.point.c_str(), &status) != 0) return {};
  std::uint32_t words[2];
  static_assert(sizeof(words) == sizeof(status.f_fsid));
  std::memcpy(words, &status.f_fsid, sizeof(words));
  return words[0] == 0 && words[1] == 0 ? "" : fmt::format("{:08x}{:08x}", words[0], words[1]);
}

/// "smb-share:server=nas,share=music" as its parts; "" is the kind.
std::map<std::string, std::string> gvfsParts(const std::string& name) {
  std::map<std::string, std::string> parts;
  const std::size_t colon = name.find(':');
  if (colon == name.npos) return parts;
  parts[""] = name.substr(0, colon);
  for (std::size_t at = colon + 1; at < name.size();) {
    const std::size_t end = std::min(name.find(',', at), name.size());
    const std::string part = name.substr(at, end - at);
    const std::size_t equals = std::min(part.find('='), part.size());
    parts[part.substr(0, equals)] = part.substr(std::min(equals + 1, part.size()));
    at = end + 1;
  }
  return parts;
}

/// The first folder below the point under which the desktop mounts its shares.
std::string gvfsShare(const std::string& realPath, const Mount& mount) {
  const auto rest = below(mount.point, realPath);
  return rest ? rest->substr(0, rest->find('/')) : std::string();
}

std::string gvfsURL(const std::string& name) {
  auto parts = gvfsParts(name);
  const std::string user = parts["user"].empty() ? "" : parts["user"] + "@";
  const std::string port = parts["port"].empty() ? "" : ":" + parts["port"];
  const std::string host = user + (parts["host"].empty() ? parts["server"] : parts["host"]) + port;
  const std::string kind = parts[""];
  if (host.empty()) return {};
  if (kind == "smb-share") return "smb://" + host + "/" + parts["share"];
  if (kind == "sftp" || kind == "ftp" || kind == "ftps") return kind + "://" + host + "/";
  if (kind == "afp-volume") return "afp://" + host + "/" + parts["volume"];
  if (kind == "dav") return (parts["ssl"] == "true" ? "davs://" : "dav://") + host + "/";
  return {};
}

}  // namespace

PreferenceValue RememberedVolume::toPreference() const {
  PreferenceMap map;
  for (const Field& field : kFields) map[field.key] = {this->*field.member};
  if (relativePath) map[kRelativePath] = {*relativePath};
  return {std::move(map)};
}

std::optional<RememberedVolume> RememberedVolume::fromPreference(const PreferenceValue& value) {
  const auto* const map = std::get_if<PreferenceMap>(&value.value);
  if (map == nullptr) return std::nullopt;
  const auto textOf = [&](const char* key) -> const std::string* {
    const auto found = map->find(key);
    return found == map->end() ? nullptr : std::get_if<std::string>(&found->second.value);
  };
  RememberedVolume volume;
  for (const Field& field : kFields) {
    if (const std::string* const text = textOf(field.key)) volume.*field.member = *text;
  }
  if (const std::string* const text = textOf(kRelativePath)) volume.relativePath = *text;
  if (!volume.mountPoint.starts_with('/')) return std::nullopt;
  return volume;
}

RememberedVolume rememberedVolume(const std::string& folder, const std::string& realPath,
                                  const Mount& mount) {
  RememberedVolume volume;
  volume.mountPoint = mount.point;
  if (folder == realPath) volume.relativePath = below(mount.point, folder);
  volume.root = mount.root;
  volume.fileSystem = mount.fileSystem;
  volume.source = mount.source;
  if (isLocal(mount)) {
    volume.uuid = uuidOf(mount);
    volume.fileSystemId = fileSystemIdOf(mount);
  }
  return volume;
}

bool shows(const Mount& mount, const RememberedVolume& volume) {
  if (mount.fileSystem != volume.fileSystem || mount.root != volume.root) return false;
  if (!isLocal(mount)) {
    // The desktop's one mount for all shares has no share of its own to tell.
    return mount.fileSystem != kGvfs && !isAutomount(mount) && mount.source == volume.source;
  }
  if (!volume.uuid.empty()) {
    if (const std::string uuid = uuidOf(mount); !uuid.empty()) return uuid == volume.uuid;
  }
  return !volume.fileSystemId.empty() && fileSystemIdOf(mount) == volume.fileSystemId;
}

std::string remountURL(const std::string& realPath, const Mount& mount) {
  const std::string& type = mount.fileSystem;
  const std::string& source = mount.source;
  if (type == kGvfs) return gvfsURL(gvfsShare(realPath, mount));
  if ((type == "cifs" || type == "smb3") && source.starts_with("//")) return "smb:" + source;
  const std::size_t colon = source.find(":/");
  if (colon == source.npos || colon == 0) return {};
  const std::string place = source.substr(0, colon) + source.substr(colon + 1);
  if (type == "nfs" || type == "nfs4") return "nfs://" + place;
  if (type == "fuse.sshfs") return "sftp://" + place;
  return {};
}

std::string volumeName(const std::string& realPath, const Mount& mount) {
  if (mount.fileSystem == kGvfs) return gvfsShare(realPath, mount);
  return mount.point.substr(mount.point.rfind('/') + 1);
}

}  // namespace velorin
